// Runs a command as an application's Build button does: in the project's folder, with a
// variable of its own, for at most a minute, its output shown as it comes, and stopped by the
// window's Cancel button, which another thread presses here after CANCEL_AFTER seconds (0:
// never).
//   build_button FOLDER CANCEL_AFTER COMMAND [ARG...]
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
    if (argc < 4) {
        std::fprintf(stderr, "usage: build_button FOLDER CANCEL_AFTER COMMAND [ARG...]\n");
        return 2;
    }
    VelcanCommand command;
    command.SetArguments(argv + 3); // the list ends with argv's null
    command.SetWorkingDirectory(argv[1]);
    command.SetEnvironment("BUILD_MODE", "release");
    command.SetTimeLimit(60);
    VelcanCancel cancel;
    command.SetCancel(&cancel);
    Printer printer;
    command.SetOutputObserver(&printer);

    // The Cancel button, on another thread: pressed after CANCEL_AFTER seconds unless the run
    // has ended by then.
    std::promise<void> ended;
    const double cancelAfter = std::atof(argv[2]);
    std::thread button([&cancel, cancelAfter, done = ended.get_future()] {
        if (cancelAfter > 0 && done.wait_for(std::chrono::duration<double>(cancelAfter)) ==
                                   std::future_status::timeout) {
            cancel.Cancel();
        }
    });
    const VelcanRunResult result = command.Run();
    ended.set_value();
    button.join();

    switch (result.end) {
    case VelcanRunEnd::Exited:
        std::printf("[exited with %d]\n", result.code);
        return result.code;
    case VelcanRunEnd::Cancelled:
        std::printf("[cancelled: the command and all it started have ended]\n");
        return 1;
    case VelcanRunEnd::TimedOut:
        std::printf("[stopped after a minute]\n");
        return 1;
    default:
        std::printf("[could not run: %s]\n", std::strerror(result.error));
        return 1;
    }
}
