// What the Windows system files share. Internal.
#ifndef VELCAN_PROCESS_WIN32_H
#define VELCAN_PROCESS_WIN32_H

#include <mutex>
#include <string>

#include <winsock2.h>
#include <windows.h>

#include "process/handle.h"

namespace velcan {
namespace sys {

// A HANDLE as the runner holds it: null and INVALID_HANDLE_VALUE are both none.
inline Native own(HANDLE handle) {
    return handle == nullptr ? kNone : reinterpret_cast<Native>(handle);
}
inline HANDLE handleOf(Native handle) {
    return reinterpret_cast<HANDLE>(handle);
}

// The errno value for a Windows error code: 3, 8, 32 and 80 become ENOENT, ENOMEM, EACCES and
// EEXIST; any other code is kept as it is.
int errnoFromWindowsError(unsigned long code);

// UTF-8 to UTF-16; false for text that is not UTF-8. And back.
bool wide(const std::string& text, std::wstring* out);
std::string utf8(const std::wstring& text);

// Children that ACE starts get inheritable copies of their handles with handle inheritance on,
// so a child started while another run's copies exist could inherit them and hold that run's
// pipe open. The library's spawns take turns from making the copies until they are closed.
std::mutex& spawnTurn();

} // namespace sys
} // namespace velcan

#endif
