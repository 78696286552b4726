#include "c/status.h"

#include <cstdlib>
#include <cstring>

namespace {

// Per thread, and trivially destructible: no destructor runs at a thread's end, in a DLL too.
thread_local char lastError[512];

} // namespace

namespace velcan {
namespace c {

velcan_status fail(velcan_status status, const std::string& message) {
    std::size_t n = message.size() < sizeof lastError - 1 ? message.size() : sizeof lastError - 1;
    // Cut between characters, not inside one.
    while (n < message.size() && n > 0 && (message[n] & 0xC0) == 0x80) {
        --n;
    }
    std::memcpy(lastError, message.data(), n);
    lastError[n] = '\0';
    return status;
}

} // namespace c
} // namespace velcan

extern "C" const char* VELCAN_CALL velcan_last_error(void) {
    return lastError;
}

extern "C" void VELCAN_CALL velcan_free(void* memory) {
    std::free(memory);
}
