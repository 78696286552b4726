// The runner on Windows: anonymous pipes, CreateProcess through ACE, a hidden window.
#include "process/platform.h"

#include <cerrno>
#include <mutex>

#include <windows.h>

#include <ace/OS_NS_fcntl.h>
#include <ace/Process.h>

#include "process/options.h"

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

std::mutex& spawnTurn() {
    static std::mutex turn;
    return turn;
}

namespace {

int lastError() {
    return errnoFromWindowsError(GetLastError());
}

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

int Handle::close() {
    const ACE_HANDLE handle = release();
    if (handle != ACE_INVALID_HANDLE && !CloseHandle(handle)) {
        return lastError();
    }
    return 0;
}

int createPipe(Pipe* pipe) {
    // Default security attributes: neither end is inheritable.
    HANDLE ends[2];
    if (!CreatePipe(&ends[0], &ends[1], nullptr, 0)) {
        return lastError();
    }
    pipe->readEnd = Handle(ends[0]);
    pipe->writeEnd = Handle(ends[1]);
    return 0;
}

struct Child::State {
    ACE_Process process;
    std::unique_ptr<ACE_Process_Options> options;
    Handle nullDevice;
};

Child::Child() : state_(new State) {}

Child::~Child() = default;

int Child::start(const char* commandLine, ACE_HANDLE output) {
    State& s = *state_;
    s.options = makeProcessOptions(commandLine);
    // Two lookups, this one and CreateProcess's own, because ACE's spawn does not keep
    // CreateProcess's error code (it makes other calls after a failed CreateProcess, which
    // leave theirs). This one tells a program that is not there (ENOENT) or is a folder
    // (EACCES) from one that is there but cannot be started (ENOEXEC, below). What runs is
    // what CreateProcess finds.
    if (int refusal = checkProgram(s.options->command_line_argv()[0])) {
        return refusal;
    }
    s.nullDevice = Handle(ACE_OS::open(
        "nul", O_RDONLY, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr));
    if (!s.nullDevice.valid()) {
        return lastError();
    }
    std::lock_guard<std::mutex> turn(spawnTurn());
    if (s.options->set_handles(s.nullDevice.get(), output, output) != 0) {
        const int error = lastError();
        s.options->release_handles();
        return error;
    }
    // After set_handles, which overwrites the start-up flags: hide the child's window.
    STARTUPINFO* startup = s.options->startup_info();
    startup->dwFlags |= STARTF_USESHOWWINDOW;
    startup->wShowWindow = SW_HIDE;
    const pid_t pid = s.process.spawn(*s.options);
    // Only the child holds the copies now, so the end of its output can be seen.
    s.options->release_handles();
    // ACE leaves the process information zeroed when CreateProcess fails: id 0, no handle.
    if (pid == ACE_INVALID_PID || s.process.getpid() == 0) {
        return ENOEXEC;
    }
    return 0;
}

int Child::confirmStart(ACE_HANDLE) {
    return 0; // CreateProcess has said already
}

int Child::releaseStart() {
    state_->options.reset();
    return state_->nullDevice.close();
}

int Child::wait(int* exitCode) {
    ACE_exitcode status = 0;
    if (state_->process.wait(&status) == ACE_INVALID_PID) {
        return lastError();
    }
    *exitCode = static_cast<int>(status);
    return 0;
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

} // namespace platform
} // namespace velcan
