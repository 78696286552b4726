// velcan run: a command through LaunchBlockingProcess, its output streamed to stdout.
#include <cerrno>
#include <cstring>
#include <string>

#include <unistd.h>

#include <velcan/velcan.h>

#include "commands.h"

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
            const ssize_t n = write(STDOUT_FILENO, buffer_ + done, static_cast<size_t>(count - done));
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

} // namespace

std::string commandLineFromArguments(const std::vector<const char*>& args) {
    std::string line;
    for (const char* arg : args) {
        std::string word;
        for (const char* c = arg; *c != '\0'; ++c) {
            word += *c == '%' ? "%%" : std::string(1, *c);
        }
        // Quotes keep a word with spaces whole; an empty word needs them too.
        if (word.empty() || word.find(' ') != std::string::npos) {
            const char quote = word.find('"') == std::string::npos ? '"' : '\'';
            word = quote + word + quote;
        }
        line += line.empty() ? word : " " + word;
    }
    return line;
}

int runCommand(const std::string& commandLine) {
    StdoutRelay relay;
    errno = 0;
    const int code = LaunchBlockingProcess(commandLine.c_str(), &relay);
    if (code == 127 && errno != 0) {
        reportError("cannot run '" + commandLine + "': " + std::strerror(errno));
    }
    return code;
}
