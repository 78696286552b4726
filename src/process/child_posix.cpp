// The child of a run on POSIX systems: posix_spawn (glibc's clone with CLONE_VFORK, whose cost
// does not grow with the caller's memory, and which reports the exec's errno) into a process
// group of its own, which is signalled to end the run; a pidfd to wait on.
#include "process/child.h"

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "process/posix.h"

extern char** environ;

namespace velcan {
namespace sys {
namespace {

// The program as posix_spawn is to run it: as given when it holds a slash (relative to the
// child's directory), else the first executable regular file of that name on PATH (the
// child's), as execvp finds it. 0, ENOENT or EACCES.
int findProgram(const std::string& program, const std::vector<std::string>& environment,
                int directory, std::string* path) {
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
    for (std::size_t from = 0;;) {
        const std::size_t colon = searchPath.find(':', from);
        const std::string entry = searchPath.substr(from, colon - from);
        const std::string candidate = (entry.empty() ? "." : entry) + "/" + program;
        struct stat st;
        if (fstatat(directory, candidate.c_str(), &st, 0) == 0) {
            if (S_ISREG(st.st_mode) &&
                faccessat(directory, candidate.c_str(), X_OK, AT_EACCESS) == 0) {
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

// posix_spawn's settings for a run: the three descriptors, the directory, nothing else open, a
// process group of its own, the signal mask cleared and SIGPIPE, SIGXFSZ and SIGCHLD at their
// defaults (a caller that ignores them would otherwise pass that on).
class SpawnSettings {
  public:
    SpawnSettings(const int (&standard)[3], int directory) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        for (int fd = 0; fd < 3; ++fd) {
            posix_spawn_file_actions_adddup2(&actions_, standard[fd], fd);
        }
        if (directory != AT_FDCWD) {
            posix_spawn_file_actions_addfchdir_np(&actions_, directory);
        }
#if defined(__GLIBC__) && (__GLIBC__ > 2 || __GLIBC_MINOR__ >= 34)
        posix_spawn_file_actions_addclosefrom_np(&actions_, 3);
#endif
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                                   POSIX_SPAWN_SETSIGDEF);
        posix_spawnattr_setpgroup(&attributes_, 0);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes_, &signals);
        sigaddset(&signals, SIGPIPE);
        sigaddset(&signals, SIGXFSZ);
        sigaddset(&signals, SIGCHLD);
        posix_spawnattr_setsigdefault(&attributes_, &signals);
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

VelcanRunResult setupFailed(int error) {
    return notRun(VelcanRunEnd::SetupFailed, error, error);
}

} // namespace

struct Child::State {
    pid_t pid = 0;
    Handle pidfd;
    int endSignal = SIGTERM;
};

Child::Child() : state_(new State) {}

Child::~Child() = default;

bool Child::start(const VelcanCommandState& command, const std::vector<std::string>& argv,
                  StandardHandles* handles, VelcanRunResult* notStarted) {
    state_->endSignal = command.endSignal != 0 ? command.endSignal : SIGTERM;
    std::vector<std::string> inherited;
    for (char** e = environ; !command.clearEnvironment && e != nullptr && *e != nullptr; ++e) {
        inherited.emplace_back(*e);
    }
    std::vector<std::string> environment = childEnvironment(inherited, command.environment, false);
    Handle directory;
    if (command.haveDirectory) {
        if (long error = openOwn(command.directory.c_str(), O_RDONLY | O_DIRECTORY, &directory)) {
            *notStarted = setupFailed(static_cast<int>(error));
            return false;
        }
    }
    const int directoryFd = directory.valid() ? static_cast<int>(directory.get()) : AT_FDCWD;
    std::string path;
    if (int error = findProgram(argv[0], environment, directoryFd, &path)) {
        *notStarted = notRun(VelcanRunEnd::ProgramNotStarted, error, error);
        return false;
    }
    const Handle& errors = handles->errors.valid() ? handles->errors : handles->output;
    const int standard[3] = {static_cast<int>(handles->input.get()),
                             static_cast<int>(handles->output.get()),
                             static_cast<int>(errors.get())};
    SpawnSettings settings(standard, directoryFd);
    std::vector<char*> envp = pointersTo(environment);
    pid_t pid = 0;
    const int error = settings.spawn(path, argv, envp.data(), &pid);
    *handles = StandardHandles();
    if (error != 0) {
        const bool setup = error == EAGAIN || error == ENOMEM || error == EMFILE || error == ENFILE;
        *notStarted =
            setup ? setupFailed(error) : notRun(VelcanRunEnd::ProgramNotStarted, error, error);
        return false;
    }
    state_->pid = pid;
#if defined(SYS_pidfd_open)
    // Where the kernel has none (before 5.3), the run looks at the child every 50 ms.
    state_->pidfd = Handle(aboveStandardHandles(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))));
#endif
    return true;
}

Native Child::endWaitable() const {
    return state_->pidfd.get();
}

bool Child::hasEnded() {
    siginfo_t info;
    info.si_pid = 0;
    int r;
    do {
        r = waitid(P_PID, static_cast<id_t>(state_->pid), &info, WEXITED | WNOHANG | WNOWAIT);
    } while (r < 0 && errno == EINTR);
    return r < 0 || info.si_pid == state_->pid;
}

bool Child::endTree(bool gently) {
    // The child is not reaped before the run ends, so its pid still names its group.
    const int signal = gently ? state_->endSignal : SIGKILL;
    kill(-state_->pid, signal);
    if (signal != SIGKILL) {
        // A stopped process acts on the signal only once it runs again.
        kill(-state_->pid, SIGCONT);
    }
    return signal == SIGKILL;
}

VelcanRunResult Child::reap() {
    int status = 0;
    pid_t r;
    do {
        r = waitpid(state_->pid, &status, 0);
    } while (r < 0 && errno == EINTR);
    VelcanRunResult result = notRun(VelcanRunEnd::Exited, 0, 0);
    if (r < 0) {
        // The system kept no status (the caller ignores SIGCHLD, or set SA_NOCLDWAIT, and the
        // child was reaped as it ended): how it ended is not known, which is no success.
        result.code = -1;
        result.error = errno;
        result.systemError = errno;
    } else if (WIFSIGNALED(status)) {
        result.end = VelcanRunEnd::Signaled;
        result.code = WTERMSIG(status);
    } else {
        result.code = WEXITSTATUS(status);
    }
    return result;
}

} // namespace sys
} // namespace velcan
