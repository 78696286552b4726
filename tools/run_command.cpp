// velcan run: a command through LaunchBlockingProcess, its output streamed to stdout.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include <velcan/velcan.h>

#include "commands.h"
#include "report.h"
#include "run_line.h"
#include "start_failure.h"

namespace {

#if !defined(_WIN32)
// A signal that ends velcan run (TERM, INT, HUP) ends the command it runs too: it is passed
// on to the child, and once the child has ended velcan ends by the same signal. The runner
// does not say the child's pid; it is velcan's only child, found once it exists.
volatile sig_atomic_t child = 0;
volatile sig_atomic_t pendingSignal = 0;
const int kForwarded[] = {SIGTERM, SIGINT, SIGHUP};

// The kernel's list of velcan's children (the main thread's), named before any signal comes.
char childrenList[64];

// velcan's one child, read from that list with calls a signal handler may make; 0 when none.
pid_t onlyChild() {
    const int fd = open(childrenList, O_RDONLY);
    if (fd < 0) {
        return 0;
    }
    char text[32];
    const ssize_t n = read(fd, text, sizeof text - 1);
    close(fd);
    pid_t pid = 0;
    for (ssize_t i = 0; i < n && text[i] >= '0' && text[i] <= '9'; ++i) {
        pid = pid * 10 + (text[i] - '0');
    }
    return pid;
}

// The output may not start before the child ends (the runner waits for it first), so the
// child is looked up here, when the signal comes.
void forwardSignal(int signal) {
    pendingSignal = signal;
    if (child == 0) {
        child = onlyChild();
    }
    if (child > 0) {
        kill(static_cast<pid_t>(child), signal);
    }
}

void forwardSignalsToTheChild() {
    std::snprintf(childrenList, sizeof childrenList, "/proc/self/task/%ld/children",
                  static_cast<long>(getpid()));
    struct sigaction action = {};
    action.sa_handler = forwardSignal;
    action.sa_flags = SA_RESTART; // the runner's reads go on
    sigemptyset(&action.sa_mask);
    for (int signal : kForwarded) {
        // One ignored when velcan started (a background job's INT) stays ignored, as in a shell.
        struct sigaction before = {};
        if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {
            sigaction(signal, &action, nullptr);
        }
    }
}

// Called as the output comes: a signal that came before the child could be found (before it
// was started) is passed on now. Nothing is looked up while no signal has come.
void passOnAnEarlySignal() {
    if (pendingSignal != 0 && child == 0) {
        child = onlyChild();
        if (child > 0) {
            kill(static_cast<pid_t>(child), pendingSignal);
        }
    }
}

// Ends velcan by the signal that ended the run, if one did.
void endByTheSignalReceived() {
    if (pendingSignal != 0) {
        std::signal(pendingSignal, SIG_DFL);
        std::raise(pendingSignal);
    }
}
#else
void forwardSignalsToTheChild() {} // Ctrl+C reaches every program of the console already
void passOnAnEarlySignal() {}
void endByTheSignalReceived() {}
#endif

// Writes each piece to stdout as it arrives, reusing one buffer.
class StdoutRelay : public IBlockingProcessObserver {
  public:
    void GetOutputBuffer(char** buffer, int* capacity) override {
        passOnAnEarlySignal();
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
                error_ = errno;
            }
        }
    }
    // The error of the write that failed, or 0.
    int writeError() const { return error_; }

  private:
    char buffer_[65536];
    bool failed_ = false;
    int error_ = 0;
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
#if defined(_WIN32)
    // cmd reads a batch file's arguments itself: what it would act on is refused, not passed.
    problem = batchFileArgumentProblem(args);
    if (!problem.empty()) {
        return usageError("run: " + problem);
    }
#endif
    StdoutRelay relay;
    forwardSignalsToTheChild();
    errno = 0;
    const int code = LaunchBlockingProcess(line.c_str(), &relay);
    const int runError = errno;
    endByTheSignalReceived();
    if (code == 127 && runError != 0) {
        reportError("cannot run " + argumentsAsTyped(args) + ": " +
                    whyNotStarted(args[0], runError));
        return code;
    }
    if (relay.writeError() != 0) {
        reportError(std::string("cannot write the output: ") + std::strerror(relay.writeError()));
        return code != 0 ? code : kExitFailure;
    }
    return code;
}
