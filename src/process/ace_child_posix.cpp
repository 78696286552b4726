// LaunchBlockingProcess's child on POSIX systems: ACE's process object forks, and the child
// moves its handles into 0-2, marks everything else close-on-exec and runs the program with
// execvp, reporting a failure through an eventfd.
#include "process/ace_child.h"

#include <cerrno>
#include <cstdint>

#include <dirent.h>
#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ace/OS_NS_fcntl.h>
#include <ace/Process.h>

#include "process/options.h"
#include "process/posix.h"

namespace velcan {
namespace sys {
namespace {

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

// ACE's process object, with what this platform does in the child before the program
// runs: the fields are what the child needs, worked out before the fork.
class ExecProcess : public ACE_Process {
  public:
    ACE_Process_Options* options = nullptr;
    ACE_HANDLE input = ACE_INVALID_HANDLE;
    ACE_HANDLE output = ACE_INVALID_HANDLE;
    ACE_HANDLE status = ACE_INVALID_HANDLE; // how the child reports a failed start
    const char* program = nullptr;
    char* const* argv = nullptr;

  protected:
    void child(pid_t parent) override;
};

void ExecProcess::child(pid_t) {
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

// Waits for the process to end and decodes how it ended.
int waitFor(ACE_Process& process, int* exitCode) {
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

} // namespace

struct AceChild::State {
    ExecProcess process;
    // Kept until the child has run the program or ended: freed earlier, this process's
    // writes to memory it still shares with the child would be copied on the child's way
    // to its exec.
    std::unique_ptr<ACE_Process_Options> options;
    Handle nullDevice;
    // The child adds its errno here when it cannot run the program; a program that runs
    // leaves it at 0. A counter rather than a pipe: one descriptor, nothing to close in this
    // process while the child makes its way to the exec.
    Handle status;
    bool waited = false;
    int waitError = 0;
    int exitCode = 0;
};

AceChild::AceChild() : state_(new State) {}

AceChild::~AceChild() = default;

int AceChild::start(const char* commandLine, Native output) {
    State& s = *state_;
    s.options = makeProcessOptions(commandLine);
    s.nullDevice = Handle(aboveStandardHandles(ACE_OS::open("/dev/null", O_RDONLY | O_CLOEXEC)));
    if (!s.nullDevice.valid()) {
        return errno;
    }
    s.status = Handle(aboveStandardHandles(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)));
    if (!s.status.valid()) {
        return errno;
    }
    s.process.options = s.options.get();
    s.process.input = static_cast<ACE_HANDLE>(s.nullDevice.get());
    s.process.output = static_cast<ACE_HANDLE>(output);
    s.process.status = static_cast<ACE_HANDLE>(s.status.get());
    // Worked out here: the child must not allocate.
    s.process.argv = s.options->command_line_argv();
    s.process.program = s.options->process_name();

    errno = 0;
    if (s.process.spawn(*s.options) == ACE_INVALID_PID) {
        return errno != 0 ? errno : EAGAIN;
    }
    return 0;
}

int AceChild::confirmStart(Native readEnd) {
    State& s = *state_;
    // The counter is final once the child has run the program or ended: with output to
    // read, its first byte or its end comes after either, and this thread does not wake at
    // the exec itself while the new program starts up. Without, once the child has ended.
    if (readEnd != kNone) {
        pollfd ready = {static_cast<int>(readEnd), POLLIN, 0};
        while (poll(&ready, 1, -1) < 0 && errno == EINTR) {
        }
    } else {
        int exitCode = 0;
        wait(&exitCode);
    }
    uint64_t reason = 0;
    ssize_t n;
    do {
        n = read(static_cast<int>(s.status.get()), &reason, sizeof reason);
    } while (n < 0 && errno == EINTR);
    s.status.close();
    // Nothing to read (EAGAIN): the program ran.
    if (n != static_cast<ssize_t>(sizeof reason)) {
        return 0;
    }
    // The child has given up and ends by itself; it is not left a zombie.
    int ignored = 0;
    wait(&ignored);
    return static_cast<int>(reason);
}

int AceChild::releaseStart() {
    state_->options.reset();
    return state_->nullDevice.close();
}

int AceChild::wait(int* exitCode) {
    State& s = *state_;
    if (!s.waited) {
        s.waitError = waitFor(s.process, &s.exitCode);
        s.waited = true;
    }
    if (s.waitError == 0) {
        *exitCode = s.exitCode;
    }
    return s.waitError;
}

} // namespace sys
} // namespace velcan
