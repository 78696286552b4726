// What the POSIX system files share. Internal.
#ifndef VELCAN_PROCESS_POSIX_H
#define VELCAN_PROCESS_POSIX_H

#include "process/handle.h"

namespace velcan {
namespace sys {

// Moves a descriptor that landed on 0, 1 or 2 (the caller has them closed) above 2, so it cannot
// be mistaken for one of a child's standard handles, keeping close-on-exec. Returns the
// descriptor, or -1 with errno set (the one given is closed then).
int aboveStandardHandles(int fd);

// Opens a file close-on-exec and above 2: 0, or the errno value.
long openOwn(const char* path, int flags, Handle* handle);

} // namespace sys
} // namespace velcan

#endif
