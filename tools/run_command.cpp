// velcan run: a command through VelcanCommand, its output streamed to stdout; statuses as
// timeout(1) and env(1) give them.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <iterator>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#if defined(_WIN32)
#include <io.h>
#else
#include <unistd.h>
#endif

#include <velcan/velcan.h>

#include "commands.h"
#include "report.h"
#include "run_line.h"
#include "start_failure.h"

namespace {

// The statuses of velcan run, as timeout(1) and env(1) have them.
const int kTimedOut = 124;
const int kOwnFailure = 125;
const int kCannotRun = 126;
const int kNotFound = 127;

// Every run's cancel: a signal that would end velcan ends the command's whole tree first.
VelcanCancel* theCancel = nullptr;

#if !defined(_WIN32)
volatile sig_atomic_t pendingSignal = 0;
const int kEnding[] = {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2, SIGALRM, SIGPIPE};

void cancelTheRun(int signal) {
    pendingSignal = signal;
    theCancel->Cancel();
}

// The command's process group: the library starts the command as this thread's only child,
// in a group of its own named by its pid. Read with async-signal-safe calls; 0 when none.
pid_t commandGroup() {
    const int fd = open("/proc/thread-self/children", O_RDONLY | O_CLOEXEC);
    char text[32] = {};
    const ssize_t n = fd >= 0 ? read(fd, text, sizeof text - 1) : -1;
    if (fd >= 0) {
        close(fd);
    }
    pid_t pid = 0;
    for (ssize_t i = 0; i < n && text[i] >= '0' && text[i] <= '9'; ++i) {
        pid = pid * 10 + (text[i] - '0');
    }
    return pid;
}

void stopTogether(int);

// Job control: TSTP stops the command's group with velcan, CONT continues both.
void onContinue(int) {
    const pid_t group = commandGroup();
    if (group > 0) {
        kill(-group, SIGCONT);
    }
    struct sigaction stop = {};
    stop.sa_handler = stopTogether;
    stop.sa_flags = SA_RESTART;
    sigemptyset(&stop.sa_mask);
    sigaction(SIGTSTP, &stop, nullptr);
}

void stopTogether(int) {
    const pid_t group = commandGroup();
    if (group > 0) {
        kill(-group, SIGSTOP);
    }
    // velcan stops too, once this returns: the signal again, by its default action.
    struct sigaction byDefault = {};
    byDefault.sa_handler = SIG_DFL;
    sigemptyset(&byDefault.sa_mask);
    sigaction(SIGTSTP, &byDefault, nullptr);
    raise(SIGTSTP);
}

void endTheCommandOnSignals() {
    struct sigaction action = {};
    action.sa_handler = cancelTheRun;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (int signal : kEnding) {
        // One ignored when velcan started (a background job's INT) stays ignored, as in a shell.
        struct sigaction before = {};
        if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {
            sigaction(signal, &action, nullptr);
        }
    }
    struct sigaction before = {};
    if (sigaction(SIGTSTP, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {
        onContinue(SIGCONT); // installs the TSTP handler; the command is not started yet
        struct sigaction resume = {};
        resume.sa_handler = onContinue;
        resume.sa_flags = SA_RESTART;
        sigemptyset(&resume.sa_mask);
        sigaction(SIGCONT, &resume, nullptr);
    }
}

// Ends velcan by the signal that ended the run, if one did.
void endByTheSignalReceived() {
    if (pendingSignal != 0) {
        std::signal(pendingSignal, SIG_DFL);
        std::raise(pendingSignal);
    }
}

ssize_t writeSome(const char* bytes, std::size_t size) {
    return write(STDOUT_FILENO, bytes, size);
}
#else
// Ctrl+C and a closed console end velcan, and the job its command runs in ends with it.
void endTheCommandOnSignals() {}
void endByTheSignalReceived() {}

long writeSome(const char* bytes, std::size_t size) {
    return _write(1, bytes, static_cast<unsigned>(size));
}
#endif

// Writes each piece to stdout as it arrives, reusing one buffer. Once stdout fails (a full
// device, a closed pipe), the run is cancelled: nothing would see its output.
class StdoutRelay : public IBlockingProcessObserver {
  public:
    void GetOutputBuffer(char** buffer, int* capacity) override {
        *buffer = buffer_;
        *capacity = sizeof buffer_;
    }
    void OutputReceived(int count) override {
        for (int done = 0; done < count && error_ == 0;) {
            const auto n = writeSome(buffer_ + done, static_cast<std::size_t>(count - done));
            if (n > 0) {
                done += static_cast<int>(n);
            } else if (n < 0 && errno != EINTR) {
                error_ = errno;
                theCancel->Cancel();
            }
        }
    }
    // The error of the write that failed, or 0.
    int writeError() const { return error_; }

  private:
    char buffer_[65536];
    int error_ = 0;
};

// What velcan itself needs of run's options; the rest go straight to the command.
struct RunOptions {
    const char* directory = nullptr;
    const char* input = nullptr;
    bool inherit = false;
    bool preserveStatus = false;
};

// A duration as timeout(1) takes it: a number of seconds, or of minutes, hours or days with
// the suffix m, h or d (s: seconds); "inf" is no limit. False for anything else.
bool readDuration(const std::string& text, double* seconds) {
    char* end = nullptr;
    errno = 0;
    double value = std::strtod(text.c_str(), &end);
    const std::string suffix = end != nullptr ? end : "";
    static const struct {
        const char* suffix;
        double seconds;
    } kUnits[] = {{"", 1}, {"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}};
    for (const auto& unit : kUnits) {
        if (suffix == unit.suffix) {
            value *= unit.seconds;
            *seconds = value;
            // Longer than the clock holds, and inf, are no limit: the library says so.
            return !text.empty() && end != text.c_str() && (errno == 0 || errno == ERANGE) &&
                   !std::isnan(value) && value >= 0 &&
                   text.find_first_of("xX") == std::string::npos;
        }
    }
    return false;
}

// A signal by name (TERM, SIGTERM, any letter case) or number; 0 when it is none.
int readSignal(const std::string& text) {
    static const struct {
        const char* name;
        int number;
    } kSignals[] = {
        {"INT", SIGINT},
        {"TERM", SIGTERM},
        {"ABRT", SIGABRT},
#if !defined(_WIN32)
        {"HUP", SIGHUP},
        {"QUIT", SIGQUIT},
        {"KILL", SIGKILL},
        {"USR1", SIGUSR1},
        {"USR2", SIGUSR2},
        {"PIPE", SIGPIPE},
        {"ALRM", SIGALRM},
        {"CONT", SIGCONT},
        {"STOP", SIGSTOP},
        {"TSTP", SIGTSTP},
#endif
    };
    if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos) {
        const long number = text.size() <= 2 ? std::strtol(text.c_str(), nullptr, 10) : 0;
        return number >= 1 && number <= 64 ? static_cast<int>(number) : 0;
    }
    std::string name;
    for (const char c : text) {
        name += static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    }
    if (name.compare(0, 3, "SIG") == 0) {
        name.erase(0, 3);
    }
    for (const auto& s : kSignals) {
        if (name == s.name) {
            return s.number;
        }
    }
    return 0;
}

// A usage error of run's: said as every command says one, with run's own status.
int runUsageError(const std::string& message) {
    usageError("run: " + message);
    return kOwnFailure;
}

// Reads run's options, which come before the command, into *options and *command. 0, or the
// status of a usage error (reported).
int readOptions(const Arguments& args, RunOptions* options, VelcanCommand* command,
                Arguments* words) {
    // timeout's and env's short options, as the long ones they stand for.
    static const struct {
        char letter;
        const char* name;
    } kShort[] = {{'k', "--kill-after"},
                  {'s', "--signal"},
                  {'i', "--ignore-environment"},
                  {'u', "--unset-env"},
                  {'C', "--cwd"}};
    static const char* const kFlags[] = {"--preserve-status", "--inherit", "--ignore-environment"};
    static const char* const kWithValue[] = {"--timeout", "--kill-after", "--signal", "--cwd",
                                             "--env",     "--unset-env",  "--input"};
    std::size_t i = 0;
    for (; i < args.size() && isOption(args[i]); ++i) {
        std::string arg = args[i];
        if (arg == "--") {
            ++i;
            break;
        }
        // -k5 is -k 5; a value given with a short option comes after it.
        bool attached = false;
        if (arg[1] != '-') {
            const auto* s =
                std::find_if(std::begin(kShort), std::end(kShort),
                             [&](const decltype(kShort[0])& o) { return o.letter == arg[1]; });
            if (s == std::end(kShort)) {
                return runUsageError("unknown option '" + arg + "'");
            }
            attached = arg.size() > 2;
            arg = std::string(s->name) + (attached ? "=" + arg.substr(2) : "");
        }
        const std::size_t equals = arg.find('=');
        const std::string name = arg.substr(0, equals);
        const bool flag = std::find(std::begin(kFlags), std::end(kFlags), name) != std::end(kFlags);
        if (flag && equals == std::string::npos) {
            if (name == "--preserve-status") {
                options->preserveStatus = true;
            } else if (name == "--inherit") {
                options->inherit = true;
            } else {
                command->ClearEnvironment();
            }
            continue;
        }
        if (std::find(std::begin(kWithValue), std::end(kWithValue), name) == std::end(kWithValue)) {
            return runUsageError("unknown option '" + std::string(args[i]) + "'");
        }
        std::string value;
        const char* valueText = nullptr;
        if (equals != std::string::npos) {
            value = arg.substr(equals + 1);
            valueText = attached ? args[i] + 2 : args[i] + equals + 1;
        } else if (i + 1 < args.size()) {
            value = args[++i];
            valueText = args[i];
        } else {
            return runUsageError(name + " needs a value (" + name + "=VALUE)");
        }
        if (name == "--timeout" || name == "--kill-after") {
            double seconds = 0;
            if (!readDuration(value, &seconds)) {
                return runUsageError(name +
                                     " expects a duration: seconds, such as 10 or 0.5, or "
                                     "with s, m, h or d (1.5m), or inf; got '" +
                                     value + "'");
            }
            if (name == "--timeout") {
                command->SetTimeLimit(seconds);
            } else {
                command->SetGracePeriod(seconds);
            }
        } else if (name == "--signal") {
            const int signal = readSignal(value);
            if (signal == 0) {
                return runUsageError("--signal expects a signal's name or number, such as TERM, "
                                     "INT or 9; got '" +
                                     value + "'");
            }
            command->SetEndSignal(signal);
        } else if (name == "--cwd") {
            if (value.empty()) {
                return runUsageError("--cwd expects a directory; got ''");
            }
            options->directory = valueText;
            command->SetWorkingDirectory(options->directory);
        } else if (name == "--env") {
            const std::size_t at = value.find('=');
            if (at == std::string::npos || at == 0) {
                return runUsageError("--env expects NAME=VALUE; got '" + value + "'");
            }
            command->SetEnvironment(value.substr(0, at).c_str(), value.substr(at + 1).c_str());
        } else if (name == "--unset-env") {
            if (value.empty() || value.find('=') != std::string::npos) {
                return runUsageError("--unset-env expects a variable's NAME; got '" + value + "'");
            }
            command->UnsetEnvironment(value.c_str());
        } else {
            if (value.empty()) {
                return runUsageError("--input expects a FILE, or - for velcan's own input; got ''");
            }
            options->input = valueText;
        }
    }
    words->assign(args.begin() + static_cast<std::ptrdiff_t>(i), args.end());
    if (words->empty() || (*words)[0][std::strspn((*words)[0], " ")] == '\0') {
        return runUsageError("expects a COMMAND");
    }
    return 0;
}

// Makes the input file velcan's own standard input, which the command then inherits: what
// cannot be read is velcan's failure, named as such. 0 or the status.
int takeInput(const char* input, VelcanCommand* command) {
    if (input == nullptr) {
        return 0;
    }
    if (std::strcmp(input, "-") != 0) {
#if defined(_WIN32)
        const int fd = _open(input, _O_RDONLY | _O_BINARY);
        const bool moved = fd >= 0 && _dup2(fd, 0) == 0;
#else
        const int fd = open(input, O_RDONLY | O_CLOEXEC);
        const bool moved = fd >= 0 && (fd == 0 || dup2(fd, 0) == 0);
#endif
        if (!moved) {
            reportError(std::string("cannot read ") + input + ": " + std::strerror(errno));
            return kOwnFailure;
        }
    }
    command->InheritInput();
    return 0;
}

// Why the run did not start, as the user is told it.
std::string whyNot(const VelcanRunResult& result, const RunOptions& options,
                   const Arguments& words) {
    // The directory is the likely cause of a failed setup: named when it is.
    if (result.end == VelcanRunEnd::SetupFailed && options.directory != nullptr) {
#if defined(_WIN32)
        const bool directoryMissing = _access(options.directory, 0) != 0;
#else
        const bool directoryMissing = access(options.directory, X_OK) != 0;
#endif
        if (directoryMissing) {
            return std::string("cannot change to ") + options.directory + ": " +
                   std::strerror(errno);
        }
    }
    if (result.end == VelcanRunEnd::Refused) {
        return "cannot run " + argumentsAsTyped(words) +
               (result.error == E2BIG ? ": over the system's limits"
                                      : ": an argument holds what a batch file cannot be given "
                                        "safely ('\"', '%' or a line break)");
    }
    return "cannot run " + argumentsAsTyped(words) + ": " + whyNotStarted(words[0], result.error);
}

} // namespace

int runCommand(const Arguments& args) {
    VelcanCommand command;
    RunOptions options;
    Arguments words;
    if (int status = readOptions(args, &options, &command, &words)) {
        return status;
    }
    if (options.inherit && options.input != nullptr) {
        return runUsageError("--inherit gives the command velcan's own input: no --input with it");
    }
    if (int status = takeInput(options.input, &command)) {
        return status;
    }
    words.push_back(nullptr);
    command.SetArguments(words.data());
    words.pop_back();

    VelcanCancel cancel;
    theCancel = &cancel;
    command.SetCancel(&cancel);
    StdoutRelay relay;
    if (options.inherit) {
        // As timeout and env run it: velcan's own three streams, nothing copied.
        command.InheritInput();
        command.InheritOutput();
        command.InheritError();
    } else {
        command.SetOutputObserver(&relay);
    }
    endTheCommandOnSignals();
    VelcanRunDetails details{};
    details.size = sizeof details;
    const VelcanRunResult result = command.Run(&details);
    endByTheSignalReceived();

    if (relay.writeError() != 0) {
        reportError(std::string("cannot write the output: ") + std::strerror(relay.writeError()));
        return kOwnFailure;
    }
    // --preserve-status: a run its time limit ended exits as its command did.
    const VelcanRunEnd end = result.end == VelcanRunEnd::TimedOut && options.preserveStatus
                                 ? details.childEnd
                                 : result.end;
    switch (end) {
    case VelcanRunEnd::Exited:
        if (result.code < 0) {
            reportError("the command ended, but how is not known: velcan was started with "
                        "SIGCHLD ignored");
            return kOwnFailure;
        }
        return result.code;
    case VelcanRunEnd::Signaled:
#if defined(_WIN32)
        return result.code; // the exception's code, as Windows reports it
#else
        return 128 + result.code;
#endif
    case VelcanRunEnd::TimedOut:
        return kTimedOut;
    case VelcanRunEnd::Cancelled:
        return kOwnFailure; // only velcan cancels, and it has ended by then or said why
    case VelcanRunEnd::ProgramNotStarted:
        reportError(whyNot(result, options, words));
        return result.error == ENOENT ? kNotFound : kCannotRun;
    case VelcanRunEnd::SetupFailed:
    case VelcanRunEnd::Refused:
        reportError(whyNot(result, options, words));
        return kOwnFailure;
    }
    return kOwnFailure;
}
