// Runs a command and prints its output as it arrives.
//   run [COMMAND_LINE]
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <velcan/velcan.h>

// Prints each piece of a child's output through one reused buffer.
class Printer : public IBlockingProcessObserver {
  public:
    void GetOutputBuffer(char** buffer, int* capacity) override {
        *buffer = buffer_;
        *capacity = sizeof buffer_; // room for the NUL the runner adds
    }
    void OutputReceived(int count) override {
        std::fwrite(buffer_, 1, static_cast<std::size_t>(count), stdout);
    }

  private:
    char buffer_[4096];
};

int main(int argc, char** argv) {
    Printer printer;
    errno = 0;
    const int code =
        LaunchBlockingProcess(argc > 1 ? argv[1] : "echo \"runs 100%% of commands\"", &printer);
    if (code == 127 && errno != 0) {
        std::fprintf(stderr, "could not run: %s\n", std::strerror(errno));
    }
    return code;
}
