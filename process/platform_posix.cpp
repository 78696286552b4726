// The runner on POSIX systems.
#include "process/platform.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ace/OS_NS_fcntl.h>

namespace velcan {
namespace platform {

namespace {

// Moves a descriptor that landed on 0, 1 or 2 (the caller has them closed) above 2, so it
// cannot be mistaken for one of the child's standard handles. Keeps close-on-exec.
int aboveStandardHandles(int fd) {
    if (fd < 0 || fd > 2) {
        return fd;
    }
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    const int saved = errno;
    close(fd);
    errno = saved;
    return moved;
}

bool isExecutableFile(const char* path, int* why) {
    struct stat st;
    if (stat(path, &st) != 0) {
        *why = errno == EACCES ? EACCES : ENOENT;
        return false;
    }
    if (!S_ISREG(st.st_mode) || access(path, X_OK) != 0) {
        *why = EACCES;
        return false;
    }
    return true;
}

// Marks every descriptor above 2 close-on-exec by listing /proc/self/fd with the raw
// system call: no allocation, so it is safe in a child forked from a threaded caller.
void markOpenDescriptorsCloseOnExec() {
    const int dir = open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0) {
        return;
    }
    alignas(8) char entries[4096];
    for (;;) {
        const long n = syscall(SYS_getdents64, dir, entries, sizeof entries);
        if (n <= 0) {
            break;
        }
        for (long at = 0; at < n;) {
            // struct linux_dirent64: ino (8), off (8), reclen (2), type (1), name.
            unsigned short length;
            std::memcpy(&length, entries + at + 16, sizeof length);
            const char* name = entries + at + 19;
            int fd = 0;
            bool number = *name != '\0';
            for (const char* c = name; *c != '\0'; ++c) {
                number = number && *c >= '0' && *c <= '9';
                fd = fd * 10 + (*c - '0');
            }
            if (number && fd > 2 && fd != dir) {
                fcntl(fd, F_SETFD, FD_CLOEXEC);
            }
            at += length;
        }
    }
    close(dir);
}

} // namespace

void ChildProcess::child(pid_t) {
    // The child keeps 0, 1 and 2 (set after this hook) and nothing else of the caller's.
    // The cost follows the descriptors open, not the open-file limit.
#if defined(SYS_close_range)
    const unsigned int kCloexec = 1U << 2; // CLOSE_RANGE_CLOEXEC
    if (syscall(SYS_close_range, 3U, ~0U, kCloexec) == 0) {
        return;
    }
#endif
    markOpenDescriptorsCloseOnExec();
}

SpawnGuard::SpawnGuard() {}
SpawnGuard::~SpawnGuard() {}

int checkProgram(const char* program) {
    int why = ENOENT;
    if (*program == '\0') {
        return ENOENT;
    }
    if (std::strchr(program, '/') != nullptr) {
        return isExecutableFile(program, &why) ? 0 : why;
    }
    // Search PATH as execvp does; an empty entry is the current directory.
    const char* path = std::getenv("PATH");
    if (path == nullptr) {
        path = "/bin:/usr/bin";
    }
    bool denied = false;
    std::string candidate;
    for (const char* dir = path;; ++dir) {
        const char* end = std::strchr(dir, ':');
        const size_t length = end != nullptr ? static_cast<size_t>(end - dir) : std::strlen(dir);
        candidate.assign(dir, length);
        if (length == 0) {
            candidate = ".";
        }
        candidate += '/';
        candidate += program;
        if (isExecutableFile(candidate.c_str(), &why)) {
            return 0;
        }
        denied = denied || why == EACCES;
        if (end == nullptr) {
            break;
        }
        dir = end;
    }
    return denied ? EACCES : ENOENT;
}

int createPipe(ACE_HANDLE ends[2]) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return -1;
    }
    ends[0] = aboveStandardHandles(fds[0]);
    ends[1] = aboveStandardHandles(fds[1]);
    if (ends[0] < 0 || ends[1] < 0) {
        const int saved = errno;
        if (ends[0] >= 0) {
            close(ends[0]);
        }
        if (ends[1] >= 0) {
            close(ends[1]);
        }
        errno = saved;
        return -1;
    }
    return 0;
}

ACE_HANDLE openNullDevice() {
    return aboveStandardHandles(ACE_OS::open("/dev/null", O_RDONLY | O_CLOEXEC));
}

void setHandles(ACE_Process_Options& options, ACE_HANDLE input, ACE_HANDLE output) {
    // The options' copies are made with dup(), which takes the lowest free descriptor: hold
    // any of 0, 1 and 2 that the caller has closed, so that no copy lands there.
    int held[3];
    int heldCount = 0;
    for (int fd = 0; fd < 3; ++fd) {
        if (fcntl(fd, F_GETFD) == -1) {
            const int taken = open("/dev/null", O_RDONLY | O_CLOEXEC);
            if (taken >= 0) {
                held[heldCount++] = taken;
            }
        }
    }
    options.set_handles(input, output, output);
    // The copies are plain, inheritable dups: any fork elsewhere in the application would
    // inherit them. The child's own dup2 onto 0, 1 and 2 makes its handles inheritable.
    const ACE_HANDLE copies[3] = {options.get_stdin(), options.get_stdout(), options.get_stderr()};
    for (const ACE_HANDLE copy : copies) {
        if (copy != ACE_INVALID_HANDLE) {
            fcntl(copy, F_SETFD, FD_CLOEXEC);
        }
    }
    for (int i = 0; i < heldCount; ++i) {
        close(held[i]);
    }
}

void hideWindow(ACE_Process_Options&) {}

ptrdiff_t readPipe(ACE_HANDLE handle, char* buffer, size_t size) {
    for (;;) {
        const ssize_t n = read(handle, buffer, size);
        if (n >= 0 || errno != EINTR) {
            return n;
        }
    }
}

void closeHandle(ACE_HANDLE handle) {
    if (handle != ACE_INVALID_HANDLE) {
        close(handle);
    }
}

bool spawned(const ACE_Process& process) {
    return process.getpid() != ACE_INVALID_PID;
}

bool waitForExit(ACE_Process& process, int* exitCode) {
    ACE_exitcode status = 0;
    for (;;) {
        if (process.wait(&status) != ACE_INVALID_PID) {
            break;
        }
        if (errno != EINTR) {
            return false;
        }
    }
    if (WIFEXITED(status)) {
        *exitCode = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        *exitCode = 128 + WTERMSIG(status);
    } else {
        return false;
    }
    return true;
}

} // namespace platform
} // namespace velcan
