// What a run waits on at once: its channels, the child's end, the cancel. Internal; one file per
// system behind it (wait_posix.cpp, wait_win32.cpp), with VelcanCancel.
#ifndef VELCAN_PROCESS_WAIT_SET_H
#define VELCAN_PROCESS_WAIT_SET_H

#include "velcan/process/command.h"
#include "process/handle.h"
#include "process/pipe.h"

namespace velcan {
namespace sys {

class WaitSet {
  public:
    // Watches an open channel, or a handle that stays ready once it is (a process, an event, a
    // pidfd, an eventfd). The index to ask fired() about, or -1 for nothing to watch.
    int add(const Channel& channel) {
        return channel.isOpen() ? add(channel.waitable(), !channel.fromChild()) : -1;
    }
    int add(Native handle) { return add(handle, false); }

    // Waits until something watched is ready or `milliseconds` pass (negative: no limit), then
    // forgets what it watched. A signal handler's interruption returns early.
    void wait(long long milliseconds);
    bool fired(int index) const { return index >= 0 && fired_[index]; }

  private:
    static const int kMost = 6;
    int add(Native handle, bool forWriting) {
        if (handle == kNone) {
            return -1;
        }
        handles_[count_] = handle;
        forWriting_[count_] = forWriting;
        fired_[count_] = false;
        return count_++;
    }
    Native handles_[kMost] = {};
    bool forWriting_[kMost] = {};
    bool fired_[kMost] = {};
    int count_ = 0;
};

} // namespace sys
} // namespace velcan

// The cancel's handle, for the runs: kNone when it could not be made, and then why (errno).
struct VelcanCancelAccess {
    static velcan::sys::Native handle(const VelcanCancel& c) {
        return static_cast<velcan::sys::Native>(c.handle_);
    }
    static int error(const VelcanCancel& c) { return c.error_; }
};

#endif
