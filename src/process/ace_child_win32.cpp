// LaunchBlockingProcess's child on Windows: CreateProcess through ACE, its window hidden.
#include "process/ace_child.h"

#include <cerrno>

#include <ace/OS_NS_fcntl.h>
#include <ace/Process.h>

#include "process/options.h"
#include "process/win32.h"

namespace velcan {
namespace sys {
namespace {

int lastError() {
    return errnoFromWindowsError(GetLastError());
}

// 0 when the program can be started, otherwise ENOENT or EACCES. Found where CreateProcess looks
// for it (the application's directory, the current directory, the system directories, then
// PATH), ".exe" added to a name without an extension.
int checkProgram(const char* program) {
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

struct AceChild::State {
    ACE_Process process;
    std::unique_ptr<ACE_Process_Options> options;
    Handle nullDevice;
};

AceChild::AceChild() : state_(new State) {}

AceChild::~AceChild() = default;

int AceChild::start(const char* commandLine, Native output) {
    State& s = *state_;
    s.options = makeProcessOptions(commandLine);
    // Two lookups, this one and CreateProcess's own, because ACE's spawn does not keep
    // CreateProcess's error code. This one tells a program that is not there (ENOENT) or is a
    // directory (EACCES) from one that is there but cannot be started (ENOEXEC, below).
    if (int refusal = checkProgram(s.options->command_line_argv()[0])) {
        return refusal;
    }
    s.nullDevice = Handle(own(ACE_OS::open(
        "nul", O_RDONLY, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr)));
    if (!s.nullDevice.valid()) {
        return lastError();
    }
    std::lock_guard<std::mutex> turn(spawnTurn());
    if (s.options->set_handles(handleOf(s.nullDevice.get()), handleOf(output), handleOf(output)) !=
        0) {
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

int AceChild::confirmStart(Native) {
    return 0; // CreateProcess has said already
}

int AceChild::releaseStart() {
    state_->options.reset();
    return state_->nullDevice.close();
}

int AceChild::wait(int* exitCode) {
    ACE_exitcode status = 0;
    if (state_->process.wait(&status) == ACE_INVALID_PID) {
        return lastError();
    }
    *exitCode = static_cast<int>(status);
    return 0;
}

} // namespace sys
} // namespace velcan
