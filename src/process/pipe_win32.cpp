// Pipes and a child's standard handles on Windows: anonymous pipes for LaunchBlockingProcess;
// for a run, named pipes opened for overlapped transfers (anonymous pipes cannot be waited on),
// the child's end inheritable.
#include "process/pipe.h"

#include <cerrno>
#include <cwchar>

#include "process/win32.h"

namespace velcan {
namespace sys {

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

int errnoOf(long systemError) {
    return errnoFromWindowsError(static_cast<unsigned long>(systemError));
}

bool wide(const std::string& text, std::wstring* out) {
    out->clear();
    if (text.empty()) {
        return true;
    }
    const int n = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(),
                                      static_cast<int>(text.size()), nullptr, 0);
    if (n <= 0) {
        return false;
    }
    out->resize(static_cast<std::size_t>(n));
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), static_cast<int>(text.size()),
                        &(*out)[0], n);
    return true;
}

std::string utf8(const std::wstring& text) {
    if (text.empty()) {
        return std::string();
    }
    const int length = static_cast<int>(text.size());
    const int n =
        WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string out(static_cast<std::size_t>(n > 0 ? n : 0), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, &out[0], n, nullptr, nullptr);
    return out;
}

std::mutex& spawnTurn() {
    static std::mutex turn;
    return turn;
}

int Handle::close() {
    const Native handle = release();
    if (handle != kNone && !CloseHandle(handleOf(handle))) {
        return errnoFromWindowsError(GetLastError());
    }
    return 0;
}

KeepCallersErrors::KeepCallersErrors() : errno_(errno), systemError_(GetLastError()) {}

KeepCallersErrors::~KeepCallersErrors() {
    SetLastError(systemError_);
    errno = errno_;
}

int makePipe(Pipe* pipe) {
    // Default security attributes: neither end is inheritable.
    HANDLE ends[2];
    if (!CreatePipe(&ends[0], &ends[1], nullptr, 0)) {
        return errnoFromWindowsError(GetLastError());
    }
    pipe->readEnd = Handle(own(ends[0]));
    pipe->writeEnd = Handle(own(ends[1]));
    return 0;
}

int readPipe(Native handle, char* buffer, std::size_t size, std::size_t* count) {
    DWORD n = 0;
    *count = 0;
    if (!ReadFile(handleOf(handle), buffer, static_cast<DWORD>(size), &n, nullptr)) {
        // The end of a child's output is itself a failed read: a broken pipe (109).
        return errnoFromWindowsError(GetLastError());
    }
    *count = n;
    return 0;
}

namespace {

long openInheritable(const std::wstring& path, DWORD access, Handle* handle) {
    SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
    *handle = Handle(own(CreateFileW(path.c_str(), access,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                     &inheritable, OPEN_EXISTING, 0, nullptr)));
    return handle->valid() ? 0 : static_cast<long>(GetLastError());
}

} // namespace

long openNullDevice(bool forWriting, Handle* handle) {
    return openInheritable(L"NUL", forWriting ? GENERIC_WRITE : GENERIC_READ, handle);
}

long openInputFile(const std::string& path, Handle* handle) {
    std::wstring name;
    if (!wide(path, &name)) {
        return ERROR_NO_UNICODE_TRANSLATION;
    }
    return openInheritable(name, GENERIC_READ, handle);
}

long duplicateStandardHandle(int which, Handle* handle) {
    const DWORD kinds[] = {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE};
    HANDLE standard = GetStdHandle(kinds[which]);
    HANDLE copy = nullptr;
    if (standard == nullptr || standard == INVALID_HANDLE_VALUE ||
        !DuplicateHandle(GetCurrentProcess(), standard, GetCurrentProcess(), &copy, 0, TRUE,
                         DUPLICATE_SAME_ACCESS)) {
        return openNullDevice(which != 0, handle);
    }
    *handle = Handle(own(copy));
    return 0;
}

struct Channel::State {
    Handle pipe;
    Handle event;
    OVERLAPPED overlapped = {};
    bool fromChild = false;
    bool pending = false;
};

Channel::Channel() : state_(new State) {}

Channel::~Channel() {
    close();
}

// Named, as anonymous pipes cannot be waited on; the name is made of this process's, this
// thread's and this channel's own values, and FILE_FLAG_FIRST_PIPE_INSTANCE refuses one that
// exists already.
long Channel::open(bool fromChild, Handle* childEnd) {
    State& s = *state_;
    s.fromChild = fromChild;
    for (int attempt = 0;; ++attempt) {
        LARGE_INTEGER now;
        QueryPerformanceCounter(&now);
        wchar_t name[128];
        swprintf(name, 128, L"\\\\.\\pipe\\velcan-%lu-%lu-%p-%lld-%d", GetCurrentProcessId(),
                 GetCurrentThreadId(), static_cast<void*>(this),
                 static_cast<long long>(now.QuadPart), attempt);
        HANDLE server = CreateNamedPipeW(name,
                                         (fromChild ? PIPE_ACCESS_INBOUND : PIPE_ACCESS_OUTBOUND) |
                                             FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
                                         PIPE_TYPE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS, 1,
                                         65536, 65536, 0, nullptr);
        if (server == INVALID_HANDLE_VALUE) {
            const DWORD error = GetLastError();
            if ((error == ERROR_ACCESS_DENIED || error == ERROR_PIPE_BUSY) && attempt < 100) {
                continue;
            }
            return static_cast<long>(error);
        }
        s.pipe = Handle(own(server));
        if (long error =
                openInheritable(name, fromChild ? GENERIC_WRITE : GENERIC_READ, childEnd)) {
            s.pipe.close();
            return error;
        }
        s.event = Handle(own(CreateEventW(nullptr, TRUE, FALSE, nullptr)));
        return s.event.valid() ? 0 : static_cast<long>(GetLastError());
    }
}

bool Channel::isOpen() const {
    return state_->pipe.valid();
}

bool Channel::fromChild() const {
    return state_->fromChild;
}

bool Channel::isPending() const {
    return state_->pending;
}

Native Channel::waitable() const {
    return state_->event.get();
}

namespace {

// What ReadFile or WriteFile (or GetOverlappedResult) came to.
Io outcome(BOOL done, DWORD n, std::size_t* count, long* error, bool* pending) {
    *pending = false;
    if (done) {
        *count = n;
        return Io::Done;
    }
    const DWORD why = GetLastError();
    *pending = why == ERROR_IO_PENDING || why == ERROR_IO_INCOMPLETE;
    if (!*pending && why != ERROR_BROKEN_PIPE && why != ERROR_HANDLE_EOF && *error == 0) {
        *error = static_cast<long>(why);
    }
    return *pending ? Io::Pending : Io::Ended;
}

} // namespace

// A read that completes at once sets the event, so the run comes back for more.
Io Channel::read(char* buffer, std::size_t size, std::size_t* count, long* error) {
    State& s = *state_;
    s.overlapped = OVERLAPPED();
    s.overlapped.hEvent = handleOf(s.event.get());
    ResetEvent(s.overlapped.hEvent);
    DWORD n = 0;
    const BOOL done =
        ReadFile(handleOf(s.pipe.get()), buffer, static_cast<DWORD>(size), &n, &s.overlapped);
    if (done) {
        SetEvent(handleOf(s.event.get()));
    }
    return outcome(done, n, count, error, &s.pending);
}

Io Channel::write(const char* bytes, std::size_t size, std::size_t* count) {
    State& s = *state_;
    s.overlapped = OVERLAPPED();
    s.overlapped.hEvent = handleOf(s.event.get());
    ResetEvent(s.overlapped.hEvent);
    DWORD n = 0;
    long ignored = 0;
    const BOOL done =
        WriteFile(handleOf(s.pipe.get()), bytes, static_cast<DWORD>(size), &n, &s.overlapped);
    return outcome(done, n, count, &ignored, &s.pending);
}

// The event can be set while the transfer is still under way (by an earlier one's completion): it
// is reset and the transfer looked at again, so the run neither spins on it nor misses the end,
// which sets the transfer's status before the event.
Io Channel::complete(std::size_t* count, long* error) {
    State& s = *state_;
    DWORD n = 0;
    BOOL done = GetOverlappedResult(handleOf(s.pipe.get()), &s.overlapped, &n, FALSE);
    if (!done && GetLastError() == ERROR_IO_INCOMPLETE) {
        ResetEvent(s.overlapped.hEvent);
        done = GetOverlappedResult(handleOf(s.pipe.get()), &s.overlapped, &n, FALSE);
    }
    return outcome(done, n, count, error, &s.pending);
}

void Channel::close() {
    State& s = *state_;
    if (s.pending) {
        CancelIoEx(handleOf(s.pipe.get()), &s.overlapped);
        DWORD n = 0;
        GetOverlappedResult(handleOf(s.pipe.get()), &s.overlapped, &n, TRUE);
        s.pending = false;
    }
    s.pipe.close();
}

} // namespace sys
} // namespace velcan
