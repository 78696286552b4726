// velcan run: a command through LaunchBlockingProcess, its output streamed to stdout.
#include <cerrno>
#include <cstring>
#include <string>

#include <unistd.h>

#include <velcan/velcan.h>

#include "commands.h"
#include "process/command_line.h"

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

} // namespace

namespace {

// One argument in the form the runner's splitting gives back as it is: "%" doubled; bare
// when it has no space or quote; otherwise between the one kind of quote it does not hold.
std::string quoted(const char* arg) {
    std::string word;
    for (const char* c = arg; *c != '\0'; ++c) {
        word += *c == '%' ? "%%" : std::string(1, *c);
    }
    if (!word.empty() && word.find_first_of(" \"'") == std::string::npos) {
        return word;
    }
    if (word.find('"') == std::string::npos) {
        return '"' + word + '"';
    }
    if (word.find('\'') == std::string::npos) {
        return '\'' + word + '\'';
    }
    return word; // holds both kinds of quote: the check below decides
}

} // namespace

bool commandLineFromArguments(const std::vector<const char*>& args, std::string* line,
                              std::string* problem) {
    line->clear();
    for (const char* arg : args) {
        *line += line->empty() ? quoted(arg) : " " + quoted(arg);
    }
    // Taken only if the runner's own splitting gives back every argument exactly.
    velcan::CommandLine parsed;
    const int refusal = velcan::parseCommandLine(line->c_str(), &parsed);
    if (refusal == E2BIG) {
        return true; // too long or too many words: the runner refuses it, and says why
    }
    const int count = refusal == 0 ? parsed.argumentCount : 0;
    for (size_t i = 0; i < args.size(); ++i) {
        if (static_cast<int>(i) >= count || std::strcmp(parsed.arguments[i], args[i]) != 0) {
            *problem = "argument " + std::to_string(i + 1) + " ('" + args[i] +
                       "') cannot be passed as it is: the command line has no form for it";
            return false;
        }
    }
    if (count != static_cast<int>(args.size())) {
        *problem = "the arguments cannot be passed as they are";
        return false;
    }
    return true;
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
