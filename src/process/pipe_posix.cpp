// Pipes and a child's standard handles on POSIX systems: pipe2, non-blocking reads and writes
// for a run, SIGPIPE held back from the caller.
#include "process/pipe.h"

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include "process/posix.h"

namespace velcan {
namespace sys {

int aboveStandardHandles(int fd) {
    if (fd < 0 || fd > 2) {
        return fd;
    }
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 3);
    const int saved = errno;
    ::close(fd);
    errno = saved;
    return moved;
}

int Handle::close() {
    const Native handle = release();
    if (handle != kNone && ::close(static_cast<int>(handle)) != 0) {
        return errno;
    }
    return 0;
}

KeepCallersErrors::KeepCallersErrors() : errno_(errno), systemError_(0) {}

KeepCallersErrors::~KeepCallersErrors() {
    errno = errno_;
}

int errnoOf(long systemError) {
    return static_cast<int>(systemError);
}

int makePipe(Pipe* pipe) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return errno;
    }
    pipe->readEnd = Handle(aboveStandardHandles(fds[0]));
    if (!pipe->readEnd.valid()) {
        const int error = errno;
        ::close(fds[1]);
        return error;
    }
    pipe->writeEnd = Handle(aboveStandardHandles(fds[1]));
    if (!pipe->writeEnd.valid()) {
        const int error = errno;
        pipe->readEnd.close();
        return error;
    }
    return 0;
}

int readPipe(Native handle, char* buffer, std::size_t size, std::size_t* count) {
    for (;;) {
        const ssize_t n = read(static_cast<int>(handle), buffer, size);
        if (n >= 0) {
            *count = static_cast<std::size_t>(n);
            return 0;
        }
        if (errno != EINTR) {
            return errno;
        }
    }
}

long openOwn(const char* path, int flags, Handle* handle) {
    *handle = Handle(aboveStandardHandles(open(path, flags | O_CLOEXEC)));
    return handle->valid() ? 0 : errno;
}

long openNullDevice(bool forWriting, Handle* handle) {
    return openOwn("/dev/null", forWriting ? O_WRONLY : O_RDONLY, handle);
}

long openInputFile(const std::string& path, Handle* handle) {
    return openOwn(path.c_str(), O_RDONLY, handle);
}

long duplicateStandardHandle(int which, Handle* handle) {
    *handle = Handle(fcntl(which, F_DUPFD_CLOEXEC, 3));
    if (!handle->valid() && errno == EBADF) {
        return openNullDevice(which != 0, handle);
    }
    return handle->valid() ? 0 : errno;
}

struct Channel::State {
    Handle fd;
    bool fromChild = false;
    // The transfer that waits for the descriptor to be ready.
    bool pending = false;
    char* buffer = nullptr;
    const char* bytes = nullptr;
    std::size_t size = 0;
};

Channel::Channel() : state_(new State) {}

Channel::~Channel() = default;

long Channel::open(bool fromChild, Handle* childEnd) {
    Pipe pipe;
    if (int error = makePipe(&pipe)) {
        return error;
    }
    state_->fromChild = fromChild;
    state_->fd = fromChild ? std::move(pipe.readEnd) : std::move(pipe.writeEnd);
    *childEnd = fromChild ? std::move(pipe.writeEnd) : std::move(pipe.readEnd);
    fcntl(static_cast<int>(state_->fd.get()), F_SETFL, O_NONBLOCK);
    return 0;
}

bool Channel::isOpen() const {
    return state_->fd.valid();
}

bool Channel::fromChild() const {
    return state_->fromChild;
}

bool Channel::isPending() const {
    return state_->pending;
}

Native Channel::waitable() const {
    return state_->fd.get();
}

Io Channel::read(char* buffer, std::size_t size, std::size_t* count, long* error) {
    State& s = *state_;
    ssize_t n;
    do {
        n = ::read(static_cast<int>(s.fd.get()), buffer, size);
    } while (n < 0 && errno == EINTR);
    s.pending = n < 0 && errno == EAGAIN;
    s.buffer = buffer;
    s.size = size;
    if (n > 0) {
        *count = static_cast<std::size_t>(n);
        return Io::Done;
    }
    if (n < 0 && !s.pending && *error == 0) {
        *error = errno;
    }
    return s.pending ? Io::Pending : Io::Ended;
}

Io Channel::write(const char* bytes, std::size_t size, std::size_t* count) {
    State& s = *state_;
    // SIGPIPE is held back for this thread meanwhile, and one the write raised is taken back, so
    // the caller never gets it.
    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &pipeSignal, &before);
    sigset_t pending;
    sigpending(&pending);
    const bool alreadyPending = sigismember(&pending, SIGPIPE) == 1;
    ssize_t n;
    do {
        n = ::write(static_cast<int>(s.fd.get()), bytes, size);
    } while (n < 0 && errno == EINTR);
    const int error = errno;
    if (n < 0 && error == EPIPE && !alreadyPending) {
        const timespec now = {0, 0};
        while (sigtimedwait(&pipeSignal, nullptr, &now) < 0 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    s.pending = n < 0 && error == EAGAIN;
    s.bytes = bytes;
    s.size = size;
    if (n >= 0) {
        *count = static_cast<std::size_t>(n);
        return Io::Done;
    }
    return s.pending ? Io::Pending : Io::Ended;
}

Io Channel::complete(std::size_t* count, long* error) {
    State& s = *state_;
    s.pending = false;
    return s.fromChild ? read(s.buffer, s.size, count, error) : write(s.bytes, s.size, count);
}

void Channel::close() {
    state_->pending = false;
    state_->fd.close();
}

} // namespace sys
} // namespace velcan
