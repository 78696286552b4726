// The runner on Linux: close_range, getdents64 on /proc/self/fd, pipe2, eventfd and fork
// with exec.
#include "process/platform.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
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

// Marks every descriptor above 2 close-on-exec by listing /proc/self/fd with getdents64,
// which does not allocate, so it is safe in a child forked from a threaded caller. For
// kernels without close_range.
void markOpenDescriptorsCloseOnExec() {
    const int dir = open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0) {
        return;
    }
    alignas(struct dirent64) char entries[4096];
    for (;;) {
        const ssize_t n = getdents64(dir, entries, sizeof entries);
        if (n <= 0) {
            break;
        }
        for (ssize_t at = 0; at < n;) {
            const auto* entry = reinterpret_cast<const struct dirent64*>(entries + at);
            int fd = 0;
            bool number = entry->d_name[0] != '\0';
            for (const char* c = entry->d_name; *c != '\0'; ++c) {
                number = number && *c >= '0' && *c <= '9';
                fd = fd * 10 + (*c - '0');
            }
            if (number && fd > 2 && fd != dir) {
                fcntl(fd, F_SETFD, FD_CLOEXEC);
            }
            at += entry->d_reclen;
        }
    }
    close(dir);
}

// In the child: tells the parent why the program could not be started, and ends.
[[noreturn]] void failStart(int status, int error) {
    // Never 0, which would leave the counter as a started program leaves it.
    const uint64_t reason = error != 0 ? static_cast<uint64_t>(error) : ENOEXEC;
    ssize_t written;
    do {
        written = write(status, &reason, sizeof reason);
    } while (written < 0 && errno == EINTR);
    _exit(127);
}

} // namespace

void ChildProcess::child(pid_t) {
    // Runs in the new child, which has one thread whatever the caller has: only
    // async-signal-safe calls from here to the exec. The program is run here, not by ACE, so
    // that a failure to start it reaches the parent through the status counter as its errno.

    // The options' copies exist only here, in a child that has no other thread, so no other
    // process can inherit them. Each lands on the lowest free descriptor, so the copies are
    // in rising order and none sits below its own place: moving them into 0, 1 and 2 in
    // that order never overwrites one still to be moved, even where the caller had some of
    // 0, 1 and 2 closed.
    options->set_handles(input, output, output);
    const ACE_HANDLE copies[3] = {options->get_stdin(), options->get_stdout(),
                                  options->get_stderr()};
    for (int fd = 0; fd < 3; ++fd) {
        if (copies[fd] == ACE_INVALID_HANDLE || dup2(copies[fd], fd) != fd) {
            failStart(status, errno);
        }
    }
    // The child keeps 0, 1 and 2 and nothing else: the caller's descriptors and the copies
    // left above 2 close at the exec. The cost follows the descriptors open, not the
    // open-file limit.
    if (close_range(3, ~0U, CLOSE_RANGE_CLOEXEC) != 0) {
        for (const ACE_HANDLE copy : copies) {
            if (copy > 2) {
                close(copy);
            }
        }
        markOpenDescriptorsCloseOnExec();
    }
    // The one lookup of the program: on PATH, or as a path when it holds a slash. What it
    // meets (ENOENT, EACCES, ELOOP, a missing "#!" interpreter, ...) is what the parent
    // reports. A file without "#!" that is not a binary is run by /bin/sh, as execvp does.
    execvp(program, argv);
    failStart(status, errno);
}

int createPipe(ACE_HANDLE ends[2]) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return errno;
    }
    ends[0] = aboveStandardHandles(fds[0]);
    const int readError = errno;
    ends[1] = aboveStandardHandles(fds[1]);
    const int writeError = errno;
    if (ends[0] < 0 || ends[1] < 0) {
        closeHandle(ends[0]);
        closeHandle(ends[1]);
        return ends[0] < 0 ? readError : writeError;
    }
    return 0;
}

int openNullDevice(ACE_HANDLE* handle) {
    *handle = aboveStandardHandles(ACE_OS::open("/dev/null", O_RDONLY | O_CLOEXEC));
    return *handle == ACE_INVALID_HANDLE ? errno : 0;
}

int startChild(ChildProcess& process, ACE_Process_Options& options, ACE_HANDLE input,
               ACE_HANDLE output) {
    // The child adds its errno here when it cannot run the program; a program that runs
    // leaves it at 0. A counter rather than a pipe: one descriptor, nothing to close in
    // this process while the child makes its way to the exec.
    process.status = aboveStandardHandles(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (process.status == ACE_INVALID_HANDLE) {
        return errno;
    }
    process.options = &options;
    process.input = input;
    process.output = output;
    // Worked out here: the child must not allocate.
    process.argv = options.command_line_argv();
    process.program = options.process_name();

    errno = 0;
    const pid_t pid = process.spawn(options);
    const int spawnError = errno != 0 ? errno : EAGAIN;
    if (pid == ACE_INVALID_PID) {
        closeHandle(process.status);
        process.status = ACE_INVALID_HANDLE;
        return spawnError;
    }
    return 0;
}

int startOutcome(ChildProcess& process, ACE_HANDLE readEnd) {
    if (process.status == ACE_INVALID_HANDLE) {
        return 0; // asked already
    }
    // The counter is final once the child has run the program or ended: with output to
    // read, its first byte or its end comes after either, and this thread does not wake at
    // the exec itself while the new program starts up. Without, this is asked after the
    // wait.
    if (readEnd != ACE_INVALID_HANDLE) {
        pollfd ready = {readEnd, POLLIN, 0};
        while (poll(&ready, 1, -1) < 0 && errno == EINTR) {
        }
    }
    uint64_t reason = 0;
    ssize_t n;
    do {
        n = read(process.status, &reason, sizeof reason);
    } while (n < 0 && errno == EINTR);
    closeHandle(process.status);
    process.status = ACE_INVALID_HANDLE;
    // Nothing to read (EAGAIN): the program ran.
    return n == static_cast<ssize_t>(sizeof reason) ? static_cast<int>(reason) : 0;
}

int readPipe(ACE_HANDLE handle, char* buffer, size_t size, size_t* count) {
    for (;;) {
        const ssize_t n = read(handle, buffer, size);
        if (n >= 0) {
            *count = static_cast<size_t>(n);
            return 0;
        }
        if (errno != EINTR) {
            return errno;
        }
    }
}

int closeHandle(ACE_HANDLE handle) {
    if (handle != ACE_INVALID_HANDLE && close(handle) != 0) {
        return errno;
    }
    return 0;
}

int waitForExit(ACE_Process& process, int* exitCode) {
    ACE_exitcode status = 0;
    while (process.wait(&status) == ACE_INVALID_PID) {
        if (errno != EINTR) {
            return errno;
        }
    }
    if (WIFEXITED(status)) {
        *exitCode = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        *exitCode = 128 + WTERMSIG(status);
    } else {
        return ECHILD;
    }
    return 0;
}

} // namespace platform
} // namespace velcan
