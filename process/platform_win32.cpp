// The runner on Windows.
#include "process/platform.h"

#include <cerrno>
#include <mutex>

#include <windows.h>

#include <ace/OS_NS_fcntl.h>

namespace velcan {
namespace platform {

int errnoFromWindowsError(unsigned long code) {
    switch (code) {
    case ERROR_PATH_NOT_FOUND: // 3
        return ENOENT;
    case ERROR_NOT_ENOUGH_MEMORY: // 8
        return ENOMEM;
    case ERROR_SHARING_VIOLATION: // 32
        return EACCES;
    case ERROR_FILE_EXISTS: // 80
        return EEXIST;
    default:
        return static_cast<int>(code);
    }
}

namespace {

int lastError() {
    return errnoFromWindowsError(GetLastError());
}

// Children start with inheritable copies of their handles and with handle inheritance on,
// so a child spawned while another call's copies exist would inherit them and hold that
// call's pipe open. This library's own spawns take turns from set_handles until the copies
// are released.
std::mutex spawnMutex;

} // namespace

void ChildProcess::child(pid_t) {}

namespace {

// 0 when the program can be started, otherwise ENOENT or EACCES.
int checkProgram(const char* program) {
    // Found where CreateProcess looks for it (the application's folder, the current folder,
    // the system folders, then PATH), ".exe" added to a name without an extension.
    char found[MAX_PATH + 1];
    const DWORD n = SearchPathA(nullptr, program, ".exe", sizeof found, found, nullptr);
    if (n == 0 || n > MAX_PATH) {
        return ENOENT;
    }
    const DWORD attributes = GetFileAttributesA(found);
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return ENOENT;
    }
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? EACCES : 0;
}

} // namespace

int createPipe(ACE_HANDLE ends[2]) {
    // Default security attributes: neither end is inheritable.
    return CreatePipe(&ends[0], &ends[1], nullptr, 0) ? 0 : lastError();
}

int openNullDevice(ACE_HANDLE* handle) {
    *handle = ACE_OS::open("nul", O_RDONLY, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                           nullptr);
    return *handle == ACE_INVALID_HANDLE ? lastError() : 0;
}

int startChild(ChildProcess& process, ACE_Process_Options& options, ACE_HANDLE input,
               ACE_HANDLE output) {
    if (int refusal = checkProgram(options.command_line_argv()[0])) {
        return refusal;
    }
    std::lock_guard<std::mutex> turn(spawnMutex);
    if (options.set_handles(input, output, output) != 0) {
        const int error = lastError();
        options.release_handles();
        return error;
    }
    // After set_handles, which overwrites the start-up flags: hide the child's window.
    STARTUPINFO* startup = options.startup_info();
    startup->dwFlags |= STARTF_USESHOWWINDOW;
    startup->wShowWindow = SW_HIDE;
    const pid_t pid = process.spawn(options);
    const int error = lastError();
    // Only the child holds the copies now, so the end of its output can be seen.
    options.release_handles();
    // ACE leaves the process information zeroed when CreateProcess fails: id 0, no handle.
    if (pid == ACE_INVALID_PID || process.getpid() == 0) {
        return error != 0 ? error : ENOENT;
    }
    return 0;
}

int startOutcome(ChildProcess&, ACE_HANDLE) {
    return 0; // CreateProcess has said already
}

int readPipe(ACE_HANDLE handle, char* buffer, size_t size, size_t* count) {
    DWORD n = 0;
    if (!ReadFile(handle, buffer, static_cast<DWORD>(size), &n, nullptr)) {
        // The end of a child's output is itself a failed read: a broken pipe (109).
        *count = 0;
        return lastError();
    }
    *count = n;
    return 0;
}

int closeHandle(ACE_HANDLE handle) {
    if (handle != ACE_INVALID_HANDLE && !CloseHandle(handle)) {
        return lastError();
    }
    return 0;
}

int waitForExit(ACE_Process& process, int* exitCode) {
    ACE_exitcode status = 0;
    if (process.wait(&status) == ACE_INVALID_PID) {
        return lastError();
    }
    *exitCode = static_cast<int>(status);
    return 0;
}

} // namespace platform
} // namespace velcan
