// VelcanCommand::Run and VelcanCancel on Linux: posix_spawn (glibc's clone with CLONE_VFORK,
// whose cost does not grow with the caller's memory, and which reports the exec's errno) into
// a process group of the child's own; one poll loop over the output, the input, the cancel's
// eventfd and the child's pidfd, so the time limit, the cancel and the end of the child are
// seen on the caller's thread without a thread of the library's.
#include "velcan/process/command.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "process/command_state.h"
#include "process/platform.h"

extern char** environ;

VelcanCancel::VelcanCancel() : handle_(-1), error_(0) {
    const int fd = velcan::platform::aboveStandardHandles(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (fd < 0) {
        error_ = errno;
    } else {
        handle_ = fd;
    }
}

VelcanCancel::~VelcanCancel() {
    if (handle_ >= 0) {
        close(static_cast<int>(handle_));
    }
}

void VelcanCancel::Cancel() {
    if (handle_ >= 0) {
        const int saved = errno; // a signal handler may call this
        const uint64_t one = 1;
        ssize_t n;
        do {
            n = write(static_cast<int>(handle_), &one, sizeof one);
        } while (n < 0 && errno == EINTR);
        errno = saved;
    }
}

bool VelcanCancel::IsCancelled() const {
    if (handle_ < 0) {
        return false;
    }
    pollfd ready = {static_cast<int>(handle_), POLLIN, 0};
    return poll(&ready, 1, 0) == 1 && (ready.revents & POLLIN) != 0;
}

void VelcanCancel::Reset() {
    if (handle_ >= 0) {
        uint64_t count = 0;
        const int saved = errno;
        while (read(static_cast<int>(handle_), &count, sizeof count) < 0 && errno == EINTR) {
        }
        errno = saved;
    }
}

namespace velcan {
namespace {

using platform::Handle;
using Clock = std::chrono::steady_clock;

// A descriptor of the run's own: close-on-exec, above 0-2. -1 with errno on failure.
int own(int fd) {
    return platform::aboveStandardHandles(fd);
}

int openOwn(const char* path, int flags) {
    return own(open(path, flags | O_CLOEXEC));
}

// A pipe between the run and the child, the run's end not blocking. 0 or the errno value.
int makePipe(bool parentReads, Handle* parentEnd, Handle* childEnd) {
    platform::Pipe pipe;
    if (int error = platform::createPipe(&pipe)) {
        return error;
    }
    *parentEnd = parentReads ? std::move(pipe.readEnd) : std::move(pipe.writeEnd);
    *childEnd = parentReads ? std::move(pipe.writeEnd) : std::move(pipe.readEnd);
    fcntl(parentEnd->get(), F_SETFL, O_NONBLOCK);
    return 0;
}

bool setupError(int error) {
    return error == EAGAIN || error == ENOMEM || error == EMFILE || error == ENFILE;
}

// The program as posix_spawn is to run it: as given when it holds a slash (relative to the
// child's folder), else the first executable regular file of that name on PATH (the child's),
// as execvp finds it. 0, ENOENT or EACCES.
int findProgram(const std::string& program, const std::vector<std::string>& environment, int folder,
                std::string* path) {
    if (program.find('/') != std::string::npos) {
        *path = program;
        return 0;
    }
    std::string searchPath = "/bin:/usr/bin";
    for (const std::string& entry : environment) {
        if (entry.compare(0, 5, "PATH=") == 0) {
            searchPath = entry.substr(5);
        }
    }
    int error = ENOENT;
    std::size_t from = 0;
    for (;;) {
        const std::size_t colon = searchPath.find(':', from);
        std::string folderName = searchPath.substr(from, colon - from);
        const std::string candidate = (folderName.empty() ? "." : folderName) + "/" + program;
        struct stat st;
        if (fstatat(folder, candidate.c_str(), &st, 0) == 0) {
            if (S_ISREG(st.st_mode) &&
                faccessat(folder, candidate.c_str(), X_OK, AT_EACCESS) == 0) {
                *path = candidate;
                return 0;
            }
            error = EACCES;
        }
        if (colon == std::string::npos) {
            return error;
        }
        from = colon + 1;
    }
}

std::vector<char*> pointersTo(std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    pointers.reserve(strings.size() + 1);
    for (std::string& s : strings) {
        pointers.push_back(&s[0]);
    }
    pointers.push_back(nullptr);
    return pointers;
}

// posix_spawn's settings for a run: the three descriptors, the folder, nothing else open, a
// process group of its own, the signal mask cleared and SIGPIPE and SIGXFSZ at their defaults
// (a caller that ignores them would otherwise pass that on).
class SpawnSettings {
  public:
    SpawnSettings(int input, int output, int errors, int folder) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        posix_spawn_file_actions_adddup2(&actions_, input, 0);
        posix_spawn_file_actions_adddup2(&actions_, output, 1);
        posix_spawn_file_actions_adddup2(&actions_, errors, 2);
        if (folder != AT_FDCWD) {
            posix_spawn_file_actions_addfchdir_np(&actions_, folder);
        }
#if defined(__GLIBC__) && (__GLIBC__ > 2 || __GLIBC_MINOR__ >= 34)
        posix_spawn_file_actions_addclosefrom_np(&actions_, 3);
#endif
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                                   POSIX_SPAWN_SETSIGDEF);
        posix_spawnattr_setpgroup(&attributes_, 0);
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes_, &none);
        sigset_t defaults;
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        sigaddset(&defaults, SIGXFSZ);
        posix_spawnattr_setsigdefault(&attributes_, &defaults);
    }
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    // 0 and the child's pid, or the error of the spawn or of the exec. A file the system cannot
    // start (no "#!", not a binary) runs through /bin/sh, as execvp does.
    int spawn(const std::string& path, std::vector<std::string> argv, char* const* envp,
              pid_t* pid) {
        std::vector<char*> args = pointersTo(argv);
        int error = posix_spawn(pid, path.c_str(), &actions_, &attributes_, args.data(), envp);
        if (error == ENOEXEC) {
            argv[0] = path;
            argv.insert(argv.begin(), "/bin/sh");
            args = pointersTo(argv);
            error = posix_spawn(pid, "/bin/sh", &actions_, &attributes_, args.data(), envp);
        }
        return error;
    }

  private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

// One of the child's output streams, relayed to its observer.
struct Stream {
    Handle fd;
    IBlockingProcessObserver* observer = nullptr;

    // A pipe from the child to `to`; the child's end in *childEnd. 0 or the errno value.
    int openFor(IBlockingProcessObserver* to, Handle* childEnd) {
        observer = to;
        return makePipe(true, &fd, childEnd);
    }

    // Reads what is there and hands it on. False once the stream has ended (its end, an
    // observer that took no more, or a failed read, kept in *error).
    bool relay(int* error) {
        // A burst of at most 16 reads, so a child that writes without pause cannot keep the
        // loop from its time limit and cancel.
        for (int reads = 0; reads < 16; ++reads) {
            char* buffer = nullptr;
            int capacity = 0;
            observer->GetOutputBuffer(&buffer, &capacity);
            if (buffer == nullptr || capacity <= 1) {
                fd.close();
                return false;
            }
            const ssize_t n = read(fd.get(), buffer, static_cast<size_t>(capacity) - 1);
            if (n > 0) {
                buffer[n] = '\0';
                observer->OutputReceived(static_cast<int>(n));
                continue;
            }
            if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
                return true;
            }
            if (n < 0 && *error == 0) {
                *error = errno;
            }
            fd.close();
            return false;
        }
        return true;
    }
};

// The input from memory, written as the child takes it.
struct InputFeed {
    Handle fd;
    const char* next = nullptr;
    std::size_t left = 0;

    // Writes what the pipe takes now; closes the pipe once all is written or the child closed
    // its end. SIGPIPE is held back for this thread meanwhile, and one the write raised is taken
    // back, so the caller never gets it.
    void feed() {
        sigset_t pipeSignal;
        sigemptyset(&pipeSignal);
        sigaddset(&pipeSignal, SIGPIPE);
        sigset_t before;
        pthread_sigmask(SIG_BLOCK, &pipeSignal, &before);
        sigset_t pending;
        sigpending(&pending);
        const bool alreadyPending = sigismember(&pending, SIGPIPE) == 1;
        while (left > 0) {
            const ssize_t n = write(fd.get(), next, std::min<std::size_t>(left, 1 << 16));
            if (n > 0) {
                next += n;
                left -= static_cast<std::size_t>(n);
            } else if (n < 0 && errno == EINTR) {
                continue;
            } else {
                if (n < 0 && errno == EPIPE && !alreadyPending) {
                    const timespec now = {0, 0};
                    while (sigtimedwait(&pipeSignal, nullptr, &now) < 0 && errno == EINTR) {
                    }
                }
                if (n < 0 && errno == EAGAIN) {
                    break;
                }
                left = 0;
            }
        }
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        if (left == 0) {
            fd.close();
        }
    }
};

// The run from its start to its end, on the caller's thread.
class Run {
  public:
    Run(const VelcanCommandState& command, Clock::time_point started)
        : command_(command), started_(started) {}

    VelcanRunResult go();

  private:
    enum class Phase { Running, Terminating, Killed };

    VelcanRunResult prepareAndSpawn();
    void loop();
    void end(VelcanRunEnd why);
    void signalGroup(int signal);
    bool childHasEnded();
    VelcanRunResult reap();

    const VelcanCommandState& command_;
    Clock::time_point started_;
    pid_t pid_ = 0;
    Handle pidfd_;
    Stream output_;
    Stream errors_;
    InputFeed input_;
    int cancel_ = -1;
    Phase phase_ = Phase::Running;
    // TimedOut or Cancelled once the limit or the cancel ended the run; Exited till then.
    VelcanRunEnd endedBy_ = VelcanRunEnd::Exited;
    bool childEnded_ = false;
    Clock::time_point killAt_;
    Clock::time_point stopReadingAt_;
    int error_ = 0;
};

VelcanRunResult Run::go() {
    VelcanRunResult failed{};
    if (!cancelAllowsStart(command_, &failed)) {
        return failed;
    }
    if (command_.cancel != nullptr) {
        cancel_ = static_cast<int>(VelcanCancelAccess::handle(*command_.cancel));
    }
    failed = prepareAndSpawn();
    if (pid_ == 0) {
        return failed;
    }
    loop();
    return reap();
}

VelcanRunResult Run::prepareAndSpawn() {
    std::vector<std::string> argv;
    if (int refusal = checkCommand(command_, &argv)) {
        return notRun(VelcanRunEnd::Refused, refusal, refusal);
    }
    std::vector<std::string> inherited;
    for (char** e = environ; e != nullptr && *e != nullptr; ++e) {
        inherited.emplace_back(*e);
    }
    std::vector<std::string> environment = childEnvironment(inherited, command_.environment, false);

    auto setupFailed = [](int error) { return notRun(VelcanRunEnd::SetupFailed, error, error); };
    Handle folder;
    if (command_.haveFolder) {
        folder = Handle(openOwn(command_.folder.c_str(), O_RDONLY | O_DIRECTORY));
        if (!folder.valid()) {
            return setupFailed(errno);
        }
    }
    Handle childInput;
    switch (command_.input) {
    case VelcanCommandState::Input::NullDevice:
        childInput = Handle(openOwn("/dev/null", O_RDONLY));
        break;
    case VelcanCommandState::Input::File:
        childInput = Handle(openOwn(command_.inputFile.c_str(), O_RDONLY));
        break;
    case VelcanCommandState::Input::Inherited:
        childInput = Handle(fcntl(0, F_DUPFD_CLOEXEC, 3));
        if (!childInput.valid() && errno == EBADF) {
            childInput = Handle(openOwn("/dev/null", O_RDONLY));
        }
        break;
    case VelcanCommandState::Input::Bytes:
        if (int error = makePipe(false, &input_.fd, &childInput)) {
            return setupFailed(error);
        }
        input_.next = command_.inputBytes;
        input_.left = command_.inputSize;
        break;
    }
    if (!childInput.valid()) {
        return setupFailed(errno);
    }
    // No output observer: the null device. No error observer: errors go with the output.
    Handle childOutput;
    if (command_.output == nullptr) {
        childOutput = Handle(openOwn("/dev/null", O_WRONLY));
        if (!childOutput.valid()) {
            return setupFailed(errno);
        }
    } else if (int error = output_.openFor(command_.output, &childOutput)) {
        return setupFailed(error);
    }
    Handle childErrors;
    if (command_.errors != nullptr) {
        if (int error = errors_.openFor(command_.errors, &childErrors)) {
            return setupFailed(error);
        }
    }

    const int folderFd = folder.valid() ? folder.get() : AT_FDCWD;
    std::string path;
    if (int error = findProgram(argv[0], environment, folderFd, &path)) {
        return notRun(VelcanRunEnd::ProgramNotStarted, error, error);
    }
    SpawnSettings settings(childInput.get(), childOutput.get(),
                           childErrors.valid() ? childErrors.get() : childOutput.get(), folderFd);
    std::vector<char*> envp = pointersTo(environment);
    pid_t pid = 0;
    if (int error = settings.spawn(path, argv, envp.data(), &pid)) {
        return notRun(setupError(error) ? VelcanRunEnd::SetupFailed
                                        : VelcanRunEnd::ProgramNotStarted,
                      error, error);
    }
    pid_ = pid;
#if defined(SYS_pidfd_open)
    // Where the kernel has none (before 5.3), the loop looks at the child every 50 ms.
    pidfd_ = Handle(own(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))));
#endif
    return notRun(VelcanRunEnd::Exited, 0, 0);
}

void Run::signalGroup(int signal) {
    // The child is not reaped before the run ends, so its pid still names its group.
    kill(-pid_, signal);
}

void Run::end(VelcanRunEnd why) {
    if (phase_ != Phase::Running) {
        return;
    }
    endedBy_ = why;
    input_.fd.close();
    const long long grace = millisecondsOf(command_.gracePeriod);
    if (grace == 0) {
        signalGroup(SIGKILL);
        phase_ = Phase::Killed;
        stopReadingAt_ = Clock::now() + std::chrono::milliseconds(250);
        return;
    }
    signalGroup(SIGTERM);
    phase_ = Phase::Terminating;
    killAt_ = Clock::now() + std::chrono::milliseconds(grace);
}

bool Run::childHasEnded() {
    siginfo_t info;
    info.si_pid = 0;
    int r;
    do {
        r = waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT);
    } while (r < 0 && errno == EINTR);
    return r < 0 || info.si_pid == pid_;
}

void Run::loop() {
    const long long limit = millisecondsOf(command_.timeLimit);
    const Clock::time_point deadline = started_ + std::chrono::milliseconds(limit);
    if (input_.fd.valid()) {
        input_.feed();
    }
    for (;;) {
        const bool reading = output_.fd.valid() || errors_.fd.valid();
        if (!reading && childEnded_) {
            return;
        }
        const Clock::time_point now = Clock::now();
        if (phase_ == Phase::Running && limit > 0 && now >= deadline) {
            end(VelcanRunEnd::TimedOut);
        }
        if (phase_ == Phase::Terminating && now >= killAt_) {
            signalGroup(SIGKILL);
            phase_ = Phase::Killed;
            // What still holds the output now is outside the group, out of the run's reach.
            stopReadingAt_ = now + std::chrono::milliseconds(250);
        }
        if (phase_ == Phase::Killed && reading && now >= stopReadingAt_) {
            output_.fd.close();
            errors_.fd.close();
            continue;
        }

        pollfd fds[5];
        nfds_t count = 0;
        auto watch = [&](int fd, short events) {
            fds[count] = {fd, events, 0};
            return fd >= 0 ? static_cast<int>(count++) : -1;
        };
        const int out = watch(output_.fd.valid() ? output_.fd.get() : -1, POLLIN);
        const int err = watch(errors_.fd.valid() ? errors_.fd.get() : -1, POLLIN);
        const int in = watch(input_.fd.valid() ? input_.fd.get() : -1, POLLOUT);
        const int cancel = watch(phase_ == Phase::Running ? cancel_ : -1, POLLIN);
        const int exited = watch(!childEnded_ && pidfd_.valid() ? pidfd_.get() : -1, POLLIN);

        long long wait = -1;
        auto until = [&](Clock::time_point when) {
            const long long ms =
                std::chrono::duration_cast<std::chrono::milliseconds>(when - now).count() + 1;
            wait = wait < 0 ? std::max(ms, 0LL) : std::min(wait, std::max(ms, 0LL));
        };
        if (phase_ == Phase::Running && limit > 0) {
            until(deadline);
        }
        if (phase_ == Phase::Terminating) {
            until(killAt_);
        }
        if (phase_ == Phase::Killed && reading) {
            until(stopReadingAt_);
        }
        if (!childEnded_ && !pidfd_.valid()) {
            until(now + std::chrono::milliseconds(50));
        }
        const int ready = poll(fds, count, static_cast<int>(std::min(wait, 1LL << 30)));
        if (ready < 0) {
            continue; // EINTR; nothing else can fail here with valid descriptors
        }
        auto fired = [&](int index) { return index >= 0 && fds[index].revents != 0; };
        if (fired(cancel)) {
            end(VelcanRunEnd::Cancelled);
        }
        if (fired(in)) {
            input_.feed();
        }
        if (fired(out)) {
            output_.relay(&error_);
        }
        if (fired(err)) {
            errors_.relay(&error_);
        }
        if (!childEnded_ && (fired(exited) || (!pidfd_.valid() && childHasEnded()))) {
            childEnded_ = true;
            input_.fd.close();
            if (command_.endOthersWithChild) {
                end(VelcanRunEnd::Exited);
            }
        }
    }
}

VelcanRunResult Run::reap() {
    // Whatever of an ended run is left (a process that ignored SIGTERM and closed the output)
    // is killed before the child's pid is given up and stops naming the group.
    if (phase_ == Phase::Terminating) {
        signalGroup(SIGKILL);
    }
    int status = 0;
    pid_t r;
    do {
        r = waitpid(pid_, &status, 0);
    } while (r < 0 && errno == EINTR);
    VelcanRunResult result = notRun(VelcanRunEnd::Exited, error_, error_);
    if (r < 0) {
        result.error = result.error != 0 ? result.error : errno;
        result.systemError = result.error;
    } else if (WIFSIGNALED(status)) {
        result.end = VelcanRunEnd::Signaled;
        result.code = WTERMSIG(status);
    } else {
        result.code = WEXITSTATUS(status);
    }
    if (endedBy_ != VelcanRunEnd::Exited) {
        result.end = endedBy_;
    }
    return result;
}

} // namespace
} // namespace velcan

VelcanRunResult VelcanCommand::Run() {
    const int callersErrno = errno;
    const auto started = std::chrono::steady_clock::now();
    velcan::Run run(*state_, started);
    const VelcanRunResult result = run.go();
    errno = callersErrno;
    return result;
}
