// A run's waits on Windows: one WaitForMultipleObjects; the cancel is a manual-reset event.
#include "process/wait_set.h"

#include <algorithm>

#include "process/win32.h"

VelcanCancel::VelcanCancel() : handle_(-1), error_(0) {
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (event == nullptr) {
        error_ = velcan::sys::errnoFromWindowsError(GetLastError());
    } else {
        handle_ = reinterpret_cast<long long>(event);
    }
}

VelcanCancel::~VelcanCancel() {
    if (handle_ != -1) {
        CloseHandle(reinterpret_cast<HANDLE>(handle_));
    }
}

void VelcanCancel::Cancel() {
    if (handle_ != -1) {
        SetEvent(reinterpret_cast<HANDLE>(handle_));
    }
}

bool VelcanCancel::IsCancelled() const {
    return handle_ != -1 &&
           WaitForSingleObject(reinterpret_cast<HANDLE>(handle_), 0) == WAIT_OBJECT_0;
}

void VelcanCancel::Reset() {
    if (handle_ != -1) {
        ResetEvent(reinterpret_cast<HANDLE>(handle_));
    }
}

namespace velcan {
namespace sys {

void WaitSet::wait(long long milliseconds) {
    HANDLE handles[kMost];
    for (int i = 0; i < count_; ++i) {
        handles[i] = handleOf(handles_[i]);
    }
    const DWORD timeout =
        milliseconds < 0 ? INFINITE : static_cast<DWORD>(std::min(milliseconds, 0x7FFFFFFFLL));
    // One ready object at a time: the first of those ready, the others at the next wait.
    const DWORD r = WaitForMultipleObjects(static_cast<DWORD>(count_), handles, FALSE, timeout);
    for (int i = 0; i < count_; ++i) {
        fired_[i] = r == WAIT_OBJECT_0 + static_cast<DWORD>(i);
    }
    count_ = 0;
}

} // namespace sys
} // namespace velcan
