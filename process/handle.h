// A handle of the runner's own: closed once, on request or when its owner goes. Internal.
#ifndef VELCAN_PROCESS_HANDLE_H
#define VELCAN_PROCESS_HANDLE_H

#include <ace/config-lite.h>

namespace velcan {
namespace platform {

class Handle {
  public:
    Handle() = default;
    explicit Handle(ACE_HANDLE handle) : handle_(handle) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    Handle(Handle&& other) noexcept : handle_(other.release()) {}
    Handle& operator=(Handle&& other) noexcept;
    // Closes what is still open; a failure here is not reported (call close() for that).
    ~Handle() { close(); }

    ACE_HANDLE get() const { return handle_; }
    bool valid() const { return handle_ != ACE_INVALID_HANDLE; }
    // Gives the handle up without closing it.
    ACE_HANDLE release();
    // Closes the handle now: 0, or the errno value of a close that failed. Closing an
    // invalid or already closed handle does nothing and returns 0.
    int close();

  private:
    ACE_HANDLE handle_ = ACE_INVALID_HANDLE;
};

inline ACE_HANDLE Handle::release() {
    const ACE_HANDLE handle = handle_;
    handle_ = ACE_INVALID_HANDLE;
    return handle;
}

inline Handle& Handle::operator=(Handle&& other) noexcept {
    if (this != &other) {
        close();
        handle_ = other.release();
    }
    return *this;
}

} // namespace platform
} // namespace velcan

#endif
