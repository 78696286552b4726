// velcan run: a command through LaunchBlockingProcess, its output streamed to stdout.
#include <cerrno>
#include <cstring>
#include <string>

#include <unistd.h>

#include <velcan/velcan.h>

#include "commands.h"
#include "report.h"
#include "run_line.h"

namespace {

// Writes each piece to stdout as it arrives, reusing one buffer.
class StdoutRelay : public IBlockingProcessObserver {
  public:
    void GetOutputBuffer(char** buffer, int* capacity) override {
        *buffer = buffer_;
        *capacity = sizeof buffer_;
    }
    void OutputReceived(int count) override {
        for (int done = 0; done < count && !failed_;) {
            const ssize_t n =
                write(STDOUT_FILENO, buffer_ + done, static_cast<size_t>(count - done));
            if (n > 0) {
                done += static_cast<int>(n);
            } else if (n < 0 && errno != EINTR) {
                failed_ = true; // stdout is gone; let the child finish all the same
            }
        }
    }

  private:
    char buffer_[65536];
    bool failed_ = false;
};

// Whether a word has nothing but spaces: no program name at all.
bool isBlank(const char* word) {
    return word[std::strspn(word, " ")] == '\0';
}

} // namespace

int runCommand(const Arguments& given) {
    Arguments args = given;
    if (!args.empty() && std::strcmp(args[0], "--") == 0) {
        args.erase(args.begin());
    } else if (!args.empty() && isOption(args[0])) {
        return usageError(std::string("run: unknown option '") + args[0] + "'");
    }
    if (args.empty() || isBlank(args[0])) {
        return usageError("run: expects a COMMAND");
    }
    std::string line;
    std::string problem;
    if (!commandLineFromArguments(args, &line, &problem)) {
        return usageError("run: " + problem);
    }
    StdoutRelay relay;
    errno = 0;
    const int code = LaunchBlockingProcess(line.c_str(), &relay);
    if (code == 127 && errno != 0) {
        reportError("cannot run '" + line + "': " + std::strerror(errno));
    }
    return code;
}
