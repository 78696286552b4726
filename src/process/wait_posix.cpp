// A run's waits on POSIX systems: one poll; the cancel is an eventfd, which a signal handler may
// write.
#include "process/wait_set.h"

#include <cerrno>
#include <algorithm>
#include <cstdint>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "process/posix.h"

VelcanCancel::VelcanCancel() : handle_(-1), error_(0) {
    const int fd = velcan::sys::aboveStandardHandles(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
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
namespace sys {

void WaitSet::wait(long long milliseconds) {
    pollfd fds[kMost];
    for (int i = 0; i < count_; ++i) {
        fds[i] = {static_cast<int>(handles_[i]),
                  static_cast<short>(forWriting_[i] ? POLLOUT : POLLIN), 0};
    }
    const int timeout = milliseconds < 0 ? -1 : static_cast<int>(std::min(milliseconds, 1LL << 30));
    // Interrupted (EINTR): nothing fired, and the run looks again.
    const bool ready = poll(fds, static_cast<nfds_t>(count_), timeout) > 0;
    for (int i = 0; i < count_; ++i) {
        fired_[i] = ready && fds[i].revents != 0;
    }
    count_ = 0;
}

} // namespace sys
} // namespace velcan
