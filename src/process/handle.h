// A descriptor (POSIX) or HANDLE (Windows) of the runner's own, closed once: on request or when
// its owner goes. Internal.
#ifndef VELCAN_PROCESS_HANDLE_H
#define VELCAN_PROCESS_HANDLE_H

#include <cstdint>

namespace velcan {
namespace sys {

// A system handle as a number: a descriptor, or a HANDLE's value.
using Native = std::intptr_t;
const Native kNone = -1;

class Handle {
  public:
    Handle() = default;
    explicit Handle(Native handle) : handle_(handle) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    Handle(Handle&& other) noexcept : handle_(other.release()) {}
    Handle& operator=(Handle&& other) noexcept {
        if (this != &other) {
            close();
            handle_ = other.release();
        }
        return *this;
    }
    // Closes what is still open; a failure here is not reported (call close() for that).
    ~Handle() { close(); }

    Native get() const { return handle_; }
    bool valid() const { return handle_ != kNone; }
    // Gives the handle up without closing it.
    Native release() {
        const Native handle = handle_;
        handle_ = kNone;
        return handle;
    }
    // Closes the handle now: 0, or the errno value of a close that failed. Closing no handle
    // does nothing and returns 0.
    int close();

  private:
    Native handle_ = kNone;
};

// Keeps the caller's errno (and on Windows its last error) from here until it goes.
class KeepCallersErrors {
  public:
    KeepCallersErrors();
    ~KeepCallersErrors();
    KeepCallersErrors(const KeepCallersErrors&) = delete;
    KeepCallersErrors& operator=(const KeepCallersErrors&) = delete;

  private:
    int errno_;
    unsigned long systemError_;
};

} // namespace sys
} // namespace velcan

#endif
