// The observer's protocol, the same for every reader of a child's output: ask for room, read at
// most the room less one byte into it, add the NUL, tell the count. Internal.
#ifndef VELCAN_PROCESS_RELAY_H
#define VELCAN_PROCESS_RELAY_H

#include <cstddef>

#include "velcan/process/blocking_process.h"

namespace velcan {

class Relay {
  public:
    explicit Relay(IBlockingProcessObserver* observer) : observer_(observer) {}

    // Asks the observer for room. False when it hands out none (a capacity of 1 or less, or a
    // null buffer): nothing may be read then, and the stream ends.
    bool askForRoom() {
        observer_->GetOutputBuffer(&buffer_, &capacity_);
        return buffer_ != nullptr && capacity_ > 1;
    }
    char* room() const { return buffer_; }
    std::size_t roomSize() const { return static_cast<std::size_t>(capacity_) - 1; }

    // count bytes (at least 1) were read into the room.
    void deliver(std::size_t count) {
        buffer_[count] = '\0';
        observer_->OutputReceived(static_cast<int>(count));
    }

  private:
    IBlockingProcessObserver* observer_;
    // Kept between calls: an observer is expected to store both every time.
    char* buffer_ = nullptr;
    int capacity_ = 0;
};

} // namespace velcan

#endif
