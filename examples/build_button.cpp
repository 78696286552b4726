// Runs a command as an application's Build button does: in the project's directory, with a
// variable of its own, for at most LIMIT seconds, its output shown as it comes, and stopped by
// the window's Cancel button, which another thread presses here after CANCEL_AFTER seconds (0:
// never). Says how the run ended, whichever way that was.
//   build_button DIRECTORY LIMIT CANCEL_AFTER COMMAND [ARG...]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <thread>

#include <velcan/velcan.h>

// Prints each piece of the output through one reused buffer.
class Printer : public IBlockingProcessObserver {
  public:
    void GetOutputBuffer(char** buffer, int* capacity) override {
        *buffer = buffer_;
        *capacity = sizeof buffer_; // room for the NUL the runner adds
    }
    void OutputReceived(int count) override {
        std::fwrite(buffer_, 1, static_cast<std::size_t>(count), stdout);
        std::fflush(stdout);
    }

  private:
    char buffer_[4096];
};

int main(int argc, char** argv) {
    if (argc < 5) {
        std::fprintf(stderr, "usage: build_button DIRECTORY LIMIT CANCEL_AFTER COMMAND [ARG...]\n");
        return 2;
    }
    VelcanCommand command;
    command.SetArguments(argv + 4); // the list ends with argv's null
    command.SetWorkingDirectory(argv[1]);
    command.SetEnvironment("BUILD_MODE", "release");
    command.SetTimeLimit(std::atof(argv[2]));
    VelcanCancel cancel;
    command.SetCancel(&cancel);
    Printer printer;
    command.SetOutputObserver(&printer);

    // The Cancel button, on another thread: pressed after CANCEL_AFTER seconds unless the run
    // has ended by then.
    std::promise<void> ended;
    const double cancelAfter = std::atof(argv[3]);
    std::thread button([&cancel, cancelAfter, done = ended.get_future()] {
        if (cancelAfter > 0 && done.wait_for(std::chrono::duration<double>(cancelAfter)) ==
                                   std::future_status::timeout) {
            cancel.Cancel();
        }
    });
    const VelcanRunResult result = command.Run();
    ended.set_value();
    button.join();

    const char* why = std::strerror(result.error);
    switch (result.end) {
    case VelcanRunEnd::Exited:
        if (result.code < 0) { // the system kept no status: the caller ignores SIGCHLD
            std::printf("[ended, how is not known: %s]\n", why);
            return 1;
        }
        std::printf("[exited with %d]\n", result.code);
        return result.code;
    case VelcanRunEnd::Signaled: // a signal's number, or on Windows an exception's code
        std::printf("[ended by signal %d]\n", result.code);
        return 1;
    case VelcanRunEnd::TimedOut:
        std::printf("[stopped after %s s: the command and all it started have ended]\n", argv[2]);
        return 1;
    case VelcanRunEnd::Cancelled:
        std::printf("[cancelled: the command and all it started have ended]\n");
        return 1;
    case VelcanRunEnd::ProgramNotStarted:
        std::printf("[could not start %s: %s]\n", argv[4], why);
        return 1;
    case VelcanRunEnd::SetupFailed:
        std::printf("[could not prepare the run in %s: %s]\n", argv[1], why);
        return 1;
    case VelcanRunEnd::Refused:
        std::printf("[refused: %s]\n", why);
        return 1;
    }
    return 1;
}
