// What every C call shares: its status, the calling thread's message, and the guard that keeps
// exceptions and allocation failures on this side of the boundary. Internal.
#ifndef VELCAN_C_STATUS_H
#define VELCAN_C_STATUS_H

#include <new>
#include <string>

#include "velcan/c.h"

namespace velcan {
namespace c {

// Makes message the calling thread's last error and returns status.
velcan_status fail(velcan_status status, const std::string& message);

// Runs body, which returns a velcan_status; an exception it lets out becomes a status.
template <typename Body> velcan_status guarded(Body body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return fail(VELCAN_ERROR_NO_MEMORY, "out of memory");
    } catch (...) {
        return fail(VELCAN_ERROR_INTERNAL, "an unexpected failure inside the library");
    }
}

// The status for a null that is not allowed, naming it.
inline velcan_status nullArgument(const char* name) {
    return fail(VELCAN_ERROR_ARGUMENT, std::string(name) + " is null");
}

} // namespace c
} // namespace velcan

#endif
