// The C interface's runner, over VelcanCommand and VelcanCancel.
#include <atomic>
#include <string>
#include <vector>

#include "c/status.h"
#include "velcan/process/command.h"

using velcan::c::fail;
using velcan::c::guarded;
using velcan::c::nullArgument;

struct velcan_cancel {
    VelcanCancel cancel;
    // Whether the caller triggered it (not a callback that asked to stop a run).
    std::atomic<bool> byCaller{false};
};

namespace {

// Hands a run's output to a C callback through one reused buffer. A callback that asks to stop
// (or throws, which it must not) triggers the run's cancel.
class CallbackObserver : public IBlockingProcessObserver {
  public:
    void set(velcan_output_callback callback, void* user) {
        callback_ = callback;
        user_ = user;
    }
    bool isSet() const { return callback_ != nullptr; }
    void startRun(VelcanCancel* stop) {
        stop_ = stop;
        stopped_ = false;
        if (buffer_.empty()) {
            buffer_.resize(kRoom);
        }
    }
    bool stopped() const { return stopped_; }

    void GetOutputBuffer(char** buffer, int* capacity) override {
        *buffer = buffer_.data();
        *capacity = static_cast<int>(buffer_.size());
    }
    void OutputReceived(int count) override {
        if (stopped_) {
            return;
        }
        int stop;
        try {
            stop = callback_(user_, buffer_.data(), static_cast<size_t>(count));
        } catch (...) {
            stop = 1;
        }
        if (stop != 0) {
            stopped_ = true;
            stop_->Cancel();
        }
    }

  private:
    static const std::size_t kRoom = 65536;
    velcan_output_callback callback_ = nullptr;
    void* user_ = nullptr;
    VelcanCancel* stop_ = nullptr;
    bool stopped_ = false;
    std::vector<char> buffer_;
};

} // namespace

struct velcan_command {
    VelcanCommand command;
    std::string input; // the copy the run reads
    velcan_cancel* cancel = nullptr;
    // Ends a run a callback stopped when the caller gave no cancel.
    VelcanCancel ownStop;
    CallbackObserver output;
    CallbackObserver error;
};

namespace {
// Applies set to the command, which must not be null.
template <typename Set> velcan_status setting(velcan_command* command, Set set) {
    return guarded([&] {
        if (command == nullptr) {
            return nullArgument("command");
        }
        set(*command);
        return VELCAN_OK;
    });
}

// Allocates a new object into *out.
template <typename T> velcan_status newObject(T** out, const char* name) {
    return guarded([&] {
        if (out == nullptr) {
            return nullArgument(name);
        }
        *out = new T;
        return VELCAN_OK;
    });
}
} // namespace

extern "C" velcan_status VELCAN_CALL velcan_cancel_new(velcan_cancel** cancel) {
    return newObject(cancel, "cancel");
}

extern "C" void VELCAN_CALL velcan_cancel_free(velcan_cancel* cancel) {
    delete cancel;
}

extern "C" void VELCAN_CALL velcan_cancel_trigger(velcan_cancel* cancel) {
    if (cancel != nullptr) {
        cancel->byCaller = true;
        cancel->cancel.Cancel();
    }
}

extern "C" void VELCAN_CALL velcan_cancel_reset(velcan_cancel* cancel) {
    if (cancel != nullptr) {
        cancel->byCaller = false;
        cancel->cancel.Reset();
    }
}

extern "C" velcan_status VELCAN_CALL velcan_command_new(velcan_command** command) {
    return newObject(command, "command");
}

extern "C" void VELCAN_CALL velcan_command_free(velcan_command* command) {
    delete command;
}

extern "C" velcan_status VELCAN_CALL velcan_command_set_arguments(velcan_command* command,
                                                                  const char* const* arguments,
                                                                  size_t count) {
    return guarded([&] {
        if (command == nullptr || (arguments == nullptr && count != 0)) {
            return nullArgument(command == nullptr ? "command" : "arguments");
        }
        std::vector<const char*> list(arguments, arguments + count);
        for (const char* argument : list) {
            if (argument == nullptr) {
                return nullArgument("an argument");
            }
        }
        list.push_back(nullptr);
        command->command.SetArguments(list.data());
        return VELCAN_OK;
    });
}

extern "C" velcan_status VELCAN_CALL velcan_command_set_line(velcan_command* command,
                                                             const char* line) {
    return guarded([&] {
        if (command == nullptr || line == nullptr) {
            return nullArgument(command == nullptr ? "command" : "line");
        }
        command->command.SetCommandLine(line);
        return VELCAN_OK;
    });
}

extern "C" velcan_status VELCAN_CALL velcan_command_set_directory(velcan_command* command,
                                                                  const char* directory) {
    return setting(command, [&](velcan_command& c) { c.command.SetWorkingDirectory(directory); });
}

extern "C" velcan_status VELCAN_CALL velcan_command_set_variable(velcan_command* command,
                                                                 const char* name,
                                                                 const char* value) {
    return guarded([&] {
        if (command == nullptr || name == nullptr) {
            return nullArgument(command == nullptr ? "command" : "name");
        }
        if (value != nullptr) {
            command->command.SetEnvironment(name, value);
        } else {
            command->command.UnsetEnvironment(name);
        }
        return VELCAN_OK;
    });
}

namespace {
// Sets a time the runner takes, refused at once when it is negative or no number.
velcan_status settingTime(velcan_command* command, double seconds,
                          void (VelcanCommand::*set)(double)) {
    if (command != nullptr && !(seconds >= 0)) {
        return fail(VELCAN_ERROR_ARGUMENT, "a time is negative or not a number");
    }
    return setting(command, [&](velcan_command& c) { (c.command.*set)(seconds); });
}
} // namespace

extern "C" velcan_status VELCAN_CALL velcan_command_set_time_limit(velcan_command* command,
                                                                   double seconds) {
    return settingTime(command, seconds, &VelcanCommand::SetTimeLimit);
}

extern "C" velcan_status VELCAN_CALL velcan_command_set_grace(velcan_command* command,
                                                              double seconds) {
    return settingTime(command, seconds, &VelcanCommand::SetGracePeriod);
}

extern "C" velcan_status VELCAN_CALL velcan_command_set_input(velcan_command* command,
                                                              const void* data, size_t size) {
    return guarded([&] {
        if (command == nullptr || (data == nullptr && size != 0)) {
            return nullArgument(command == nullptr ? "command" : "data");
        }
        command->input.assign(static_cast<const char*>(data), data != nullptr ? size : 0);
        command->command.SetInput(command->input.data(), command->input.size());
        return VELCAN_OK;
    });
}

extern "C" velcan_status VELCAN_CALL velcan_command_set_cancel(velcan_command* command,
                                                               velcan_cancel* cancel) {
    return setting(command, [&](velcan_command& c) { c.cancel = cancel; });
}

extern "C" velcan_status VELCAN_CALL velcan_command_set_output(velcan_command* command,
                                                               velcan_output_callback callback,
                                                               void* user) {
    return setting(command, [&](velcan_command& c) { c.output.set(callback, user); });
}

extern "C" velcan_status VELCAN_CALL velcan_command_set_error(velcan_command* command,
                                                              velcan_output_callback callback,
                                                              void* user) {
    return setting(command, [&](velcan_command& c) { c.error.set(callback, user); });
}

extern "C" velcan_status VELCAN_CALL velcan_command_run(velcan_command* command,
                                                        velcan_result* result) {
    return guarded([&] {
        if (command == nullptr || result == nullptr) {
            return nullArgument(command == nullptr ? "command" : "result");
        }
        if (result->size < sizeof(velcan_result)) {
            return fail(VELCAN_ERROR_ARGUMENT, "result's size is not sizeof(velcan_result)");
        }
        // A callback stops the run through the caller's cancel, taken back afterwards unless
        // the caller triggered it too; or through a cancel of the command's own.
        VelcanCancel* stop =
            command->cancel != nullptr ? &command->cancel->cancel : &command->ownStop;
        command->output.startRun(stop);
        command->error.startRun(stop);
        VelcanCommand& run = command->command;
        run.SetCancel(stop);
        run.SetOutputObserver(command->output.isSet() ? &command->output : nullptr);
        run.SetErrorObserver(command->error.isSet() ? &command->error : nullptr);
        const VelcanRunResult r = run.Run();
        const bool stopped = command->output.stopped() || command->error.stopped();
        if (stopped && (command->cancel == nullptr || !command->cancel->byCaller)) {
            stop->Reset();
        }
        result->end = static_cast<int>(r.end);
        result->code = r.code;
        result->error = r.error;
        result->system_error = static_cast<int>(r.systemError);
        return stopped ? fail(VELCAN_ERROR_STOPPED_BY_CALLBACK, "a callback ended the run")
                       : VELCAN_OK;
    });
}
