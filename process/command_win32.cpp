// VelcanCommand::Run and VelcanCancel on Windows: CreateProcessW (UTF-16 whatever the code
// page) of a suspended child that is put in a job object before its first instruction, with an
// explicit list of the handles it inherits; overlapped named pipes, so one wait on the caller's
// thread sees the output, the input, the child's end, the cancel's event and the time limit.
#include "velcan/process/command.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

// ACE's configuration (through platform.h) brings winsock2.h, which must come before windows.h.
#include "process/platform.h"

#include <windows.h>

#include "process/command_state.h"
#include "process/windows_quoting.h"

VelcanCancel::VelcanCancel() : handle_(-1), error_(0) {
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (event == nullptr) {
        error_ = velcan::platform::errnoFromWindowsError(GetLastError());
    } else {
        handle_ = reinterpret_cast<long long>(event);
    }
}

VelcanCancel::~VelcanCancel() {
    if (handle_ != -1) {
        CloseHandle(reinterpret_cast<HANDLE>(handle_));
    }
}

void VelcanCancel::Cancel() {
    if (handle_ != -1) {
        SetEvent(reinterpret_cast<HANDLE>(handle_));
    }
}

bool VelcanCancel::IsCancelled() const {
    return handle_ != -1 &&
           WaitForSingleObject(reinterpret_cast<HANDLE>(handle_), 0) == WAIT_OBJECT_0;
}

void VelcanCancel::Reset() {
    if (handle_ != -1) {
        ResetEvent(reinterpret_cast<HANDLE>(handle_));
    }
}

namespace velcan {
namespace {

using platform::Handle;

// The errno value and the system's code of the last failure.
VelcanRunResult failure(VelcanRunEnd end, DWORD code) {
    return notRun(end, platform::errnoFromWindowsError(code), static_cast<long>(code));
}

// UTF-8 to UTF-16; false for text that is not UTF-8.
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

std::string utf8(const wchar_t* text, std::size_t length) {
    if (length == 0) {
        return std::string();
    }
    const int n = WideCharToMultiByte(CP_UTF8, 0, text, static_cast<int>(length), nullptr, 0,
                                      nullptr, nullptr);
    std::string out(static_cast<std::size_t>(n > 0 ? n : 0), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, static_cast<int>(length), &out[0], n, nullptr, nullptr);
    return out;
}

// The caller's environment, one "NAME=VALUE" entry each, in UTF-8.
std::vector<std::string> callersEnvironment() {
    std::vector<std::string> entries;
    wchar_t* block = GetEnvironmentStringsW();
    if (block == nullptr) {
        return entries;
    }
    for (const wchar_t* entry = block; *entry != L'\0'; entry += wcslen(entry) + 1) {
        entries.push_back(utf8(entry, wcslen(entry)));
    }
    FreeEnvironmentStringsW(block);
    return entries;
}

std::wstring systemFolder(bool windows) {
    wchar_t folder[MAX_PATH + 1];
    const UINT n = windows ? GetWindowsDirectoryW(folder, MAX_PATH + 1)
                           : GetSystemDirectoryW(folder, MAX_PATH + 1);
    return std::wstring(folder, n <= MAX_PATH ? n : 0);
}

// Where the program is: a path as given (with a separator), or looked for in the application's
// folder, the system folders and then the child's PATH, ".exe" added to a name without an
// extension. Not the current folder, where a file of a system program's name would run in its
// place. 0, ENOENT, or EACCES for a folder.
int findProgram(const std::wstring& program, const std::vector<std::string>& environment,
                std::wstring* found) {
    std::wstring searchPath;
    if (program.find_first_of(L"\\/:") == std::wstring::npos) {
        wchar_t self[MAX_PATH + 1];
        const DWORD n = GetModuleFileNameW(nullptr, self, MAX_PATH + 1);
        std::wstring application(self, n <= MAX_PATH ? n : 0);
        application = application.substr(0, application.find_last_of(L"\\/"));
        searchPath = application + L";" + systemFolder(false) + L";" + systemFolder(true);
        for (const std::string& entry : environment) {
            if (entry.size() > 5 && _strnicmp(entry.c_str(), "PATH=", 5) == 0) {
                std::wstring path;
                if (wide(entry.substr(5), &path)) {
                    searchPath += L";" + path;
                }
            }
        }
    }
    std::vector<wchar_t> buffer(32768);
    const DWORD n = SearchPathW(searchPath.empty() ? nullptr : searchPath.c_str(), program.c_str(),
                                L".exe", static_cast<DWORD>(buffer.size()), buffer.data(), nullptr);
    if (n == 0 || n >= buffer.size()) {
        return ENOENT;
    }
    found->assign(buffer.data(), n);
    const DWORD attributes = GetFileAttributesW(found->c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return ENOENT;
    }
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? EACCES : 0;
}

// The environment block CreateProcessW takes: entries sorted by name as Windows sorts them
// (letter case aside), each ended by a NUL, the block by one more.
bool environmentBlock(std::vector<std::string> entries, std::wstring* block) {
    std::sort(entries.begin(), entries.end(), [](const std::string& a, const std::string& b) {
        return _stricmp(a.c_str(), b.c_str()) < 0;
    });
    block->clear();
    for (const std::string& entry : entries) {
        std::wstring w;
        if (!wide(entry, &w) || w.find(L'\0') != std::wstring::npos) {
            return false;
        }
        *block += w;
        *block += L'\0';
    }
    *block += L'\0';
    return true;
}

// A pipe: this process's end overlapped, the child's inheritable. Named, as anonymous pipes
// cannot be waited on; the name is made of this process's, this thread's and this call's own
// values, and FILE_FLAG_FIRST_PIPE_INSTANCE refuses one that exists already.
DWORD makePipe(bool parentReads, const void* tag, Handle* parentEnd, Handle* childEnd) {
    for (int attempt = 0;; ++attempt) {
        LARGE_INTEGER now;
        QueryPerformanceCounter(&now);
        wchar_t name[128];
        swprintf(name, 128, L"\\\\.\\pipe\\velcan-%lu-%lu-%p-%lld-%d", GetCurrentProcessId(),
                 GetCurrentThreadId(), tag, static_cast<long long>(now.QuadPart), attempt);
        HANDLE server = CreateNamedPipeW(
            name,
            (parentReads ? PIPE_ACCESS_INBOUND : PIPE_ACCESS_OUTBOUND) | FILE_FLAG_OVERLAPPED |
                FILE_FLAG_FIRST_PIPE_INSTANCE,
            PIPE_TYPE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS, 1, 65536, 65536, 0, nullptr);
        if (server == INVALID_HANDLE_VALUE) {
            const DWORD error = GetLastError();
            if ((error == ERROR_ACCESS_DENIED || error == ERROR_PIPE_BUSY) && attempt < 100) {
                continue;
            }
            return error;
        }
        *parentEnd = Handle(server);
        SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
        HANDLE client = CreateFileW(name, parentReads ? GENERIC_WRITE : GENERIC_READ, 0,
                                    &inheritable, OPEN_EXISTING, 0, nullptr);
        if (client == INVALID_HANDLE_VALUE) {
            const DWORD error = GetLastError();
            parentEnd->close();
            return error;
        }
        *childEnd = Handle(client);
        return 0;
    }
}

HANDLE openInheritable(const std::wstring& path, DWORD access) {
    SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
    return CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                       &inheritable, OPEN_EXISTING, 0, nullptr);
}

// An overlapped transfer on one of the run's pipes.
struct Transfer {
    Handle pipe;
    Handle event;
    OVERLAPPED overlapped = {};
    bool pending = false;

    bool open() const { return pipe.valid(); }

    // The pipe between the run and the child, and the event its transfers signal; the child's
    // end in *childEnd. 0 or the system's error code.
    DWORD connect(bool parentReads, Handle* childEnd) {
        if (DWORD error = makePipe(parentReads, this, &pipe, childEnd)) {
            return error;
        }
        event = Handle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        return event.valid() ? 0 : GetLastError();
    }

    // Gives up: a pending transfer is cancelled and waited for, so nothing is written to a
    // buffer after the run.
    void close() {
        if (pending) {
            CancelIoEx(pipe.get(), &overlapped);
            DWORD n = 0;
            GetOverlappedResult(pipe.get(), &overlapped, &n, TRUE);
            pending = false;
        }
        pipe.close();
    }
    ~Transfer() { close(); }
};

// One of the child's output streams, relayed to its observer.
struct Stream : Transfer {
    IBlockingProcessObserver* observer = nullptr;
    char* buffer = nullptr;

    // A pipe from the child to `to`; the child's end in *childEnd. 0 or the system's error code.
    DWORD openFor(IBlockingProcessObserver* to, Handle* childEnd) {
        observer = to;
        return connect(true, childEnd);
    }

    // Starts the next read, or hands on reads that complete at once. False once the stream has
    // ended (its end, an observer that took no more, a failure kept in *error).
    bool next(DWORD* error) {
        for (int reads = 0; reads < 16; ++reads) {
            int capacity = 0;
            buffer = nullptr;
            observer->GetOutputBuffer(&buffer, &capacity);
            if (buffer == nullptr || capacity <= 1) {
                close();
                return false;
            }
            ResetEvent(event.get());
            overlapped = OVERLAPPED();
            overlapped.hEvent = event.get();
            DWORD n = 0;
            if (ReadFile(pipe.get(), buffer, static_cast<DWORD>(capacity - 1), &n, &overlapped)) {
                deliver(n);
                continue;
            }
            const DWORD why = GetLastError();
            if (why == ERROR_IO_PENDING) {
                pending = true;
                return true;
            }
            return end(why, error);
        }
        // A child that writes without pause gets its turn later: the loop looks at the rest.
        SetEvent(event.get());
        return true;
    }

    // The pending read completed (its event is set): hands it on and starts the next one.
    bool completed(DWORD* error) {
        if (!pending) {
            return next(error);
        }
        DWORD n = 0;
        pending = false;
        if (!GetOverlappedResult(pipe.get(), &overlapped, &n, FALSE)) {
            return end(GetLastError(), error);
        }
        deliver(n);
        return next(error);
    }

  private:
    void deliver(DWORD n) {
        if (n > 0) {
            buffer[n] = '\0';
            observer->OutputReceived(static_cast<int>(n));
        }
    }
    bool end(DWORD why, DWORD* error) {
        if (why != ERROR_BROKEN_PIPE && why != ERROR_HANDLE_EOF && *error == 0) {
            *error = why;
        }
        close();
        return false;
    }
};

// The input from memory, written as the child takes it.
struct InputFeed : Transfer {
    const char* next = nullptr;
    std::size_t left = 0;
    DWORD writing = 0;

    void feed() {
        for (;;) {
            if (pending) {
                DWORD n = 0;
                pending = false;
                if (!GetOverlappedResult(pipe.get(), &overlapped, &n, FALSE)) {
                    close(); // the child closed its end
                    return;
                }
                next += n;
                left -= n;
            }
            if (left == 0) {
                close();
                return;
            }
            ResetEvent(event.get());
            overlapped = OVERLAPPED();
            overlapped.hEvent = event.get();
            writing = static_cast<DWORD>(std::min<std::size_t>(left, 1 << 16));
            DWORD n = 0;
            if (WriteFile(pipe.get(), next, writing, &n, &overlapped)) {
                next += n;
                left -= n;
                continue;
            }
            if (GetLastError() == ERROR_IO_PENDING) {
                pending = true;
                return;
            }
            close();
            return;
        }
    }
};

class Run {
  public:
    explicit Run(const VelcanCommandState& command) : command_(command) {}
    VelcanRunResult go();

  private:
    VelcanRunResult start();
    void loop();
    void end(VelcanRunEnd why);

    const VelcanCommandState& command_;
    ULONGLONG started_ = GetTickCount64();
    Handle job_;
    Handle process_;
    Stream output_;
    Stream errors_;
    InputFeed input_;
    HANDLE cancel_ = nullptr;
    bool ending_ = false;
    // TimedOut or Cancelled once the limit or the cancel ended the run; Exited till then.
    VelcanRunEnd endedBy_ = VelcanRunEnd::Exited;
    bool childEnded_ = false;
    ULONGLONG stopReadingAt_ = 0;
    DWORD error_ = 0;
};

VelcanRunResult Run::go() {
    VelcanRunResult failed{};
    if (!cancelAllowsStart(command_, &failed)) {
        return failed;
    }
    if (command_.cancel != nullptr) {
        cancel_ = reinterpret_cast<HANDLE>(VelcanCancelAccess::handle(*command_.cancel));
    }
    failed = start();
    if (!process_.valid()) {
        return failed;
    }
    loop();
    DWORD code = 0;
    VelcanRunResult result = notRun(VelcanRunEnd::Exited, 0, 0);
    if (WaitForSingleObject(process_.get(), INFINITE) != WAIT_OBJECT_0 ||
        !GetExitCodeProcess(process_.get(), &code)) {
        error_ = error_ != 0 ? error_ : GetLastError();
    }
    // An exception's code has its two top bits set (0xC0000005, an access violation).
    result.end = code >= 0xC0000000u ? VelcanRunEnd::Signaled : VelcanRunEnd::Exited;
    result.code = static_cast<int>(code);
    if (endedBy_ != VelcanRunEnd::Exited) {
        result.end = endedBy_;
    }
    result.error = error_ != 0 ? platform::errnoFromWindowsError(error_) : 0;
    result.systemError = static_cast<long>(error_);
    // Closing the job ends whatever of the run is left (JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE).
    return result;
}

VelcanRunResult Run::start() {
    std::vector<std::string> argv;
    if (int refusal = checkCommand(command_, &argv)) {
        return notRun(VelcanRunEnd::Refused, refusal, refusal);
    }
    const std::vector<std::string> environment =
        childEnvironment(callersEnvironment(), command_.environment, true);
    std::wstring program;
    if (!wide(argv[0], &program)) {
        return notRun(VelcanRunEnd::Refused, EINVAL, ERROR_NO_UNICODE_TRANSLATION);
    }
    std::wstring found;
    if (int error = findProgram(program, environment, &found)) {
        return notRun(VelcanRunEnd::ProgramNotStarted, error, error);
    }
    // The line: as given, or made from the arguments; for a batch file, cmd's.
    std::string line;
    std::wstring application = found;
    if (command_.haveLine) {
        for (std::size_t i = 0; i < command_.line.size(); ++i) {
            line += command_.line[i];
            i += command_.line[i] == '%' ? 1 : 0; // "%%" is "%"
        }
    } else if (isBatchFile(utf8(found.c_str(), found.size()))) {
        std::string cmdLine;
        std::size_t refused = 0;
        if (!lineForCmd(utf8(found.c_str(), found.size()), argv, &cmdLine, &refused)) {
            return notRun(VelcanRunEnd::Refused, EINVAL, ERROR_INVALID_PARAMETER);
        }
        application = systemFolder(false) + L"\\cmd.exe";
        line = "cmd.exe /d /e:ON /v:OFF /s /c " + cmdLine;
    } else {
        line = quoteForWindows(argv);
    }
    std::wstring wideLine;
    std::wstring folder;
    std::wstring block;
    if (!wide(line, &wideLine) || (command_.haveFolder && !wide(command_.folder, &folder)) ||
        !environmentBlock(environment, &block)) {
        return notRun(VelcanRunEnd::Refused, EINVAL, ERROR_NO_UNICODE_TRANSLATION);
    }
    if (command_.haveFolder) {
        const DWORD attributes = GetFileAttributesW(folder.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES) {
            return failure(VelcanRunEnd::SetupFailed, ERROR_PATH_NOT_FOUND);
        }
        if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
            return notRun(VelcanRunEnd::SetupFailed, ENOTDIR, ERROR_DIRECTORY);
        }
    }

    // The child's three handles, inheritable; this process's ends are not.
    Handle childInput;
    Handle childOutput;
    Handle childErrors;
    switch (command_.input) {
    case VelcanCommandState::Input::NullDevice:
        childInput = Handle(openInheritable(L"NUL", GENERIC_READ));
        break;
    case VelcanCommandState::Input::File: {
        std::wstring path;
        if (!wide(command_.inputFile, &path)) {
            return notRun(VelcanRunEnd::Refused, EINVAL, ERROR_NO_UNICODE_TRANSLATION);
        }
        childInput = Handle(openInheritable(path, GENERIC_READ));
        break;
    }
    case VelcanCommandState::Input::Inherited: {
        HANDLE own = GetStdHandle(STD_INPUT_HANDLE);
        HANDLE copy = INVALID_HANDLE_VALUE;
        if (own == nullptr || own == INVALID_HANDLE_VALUE ||
            !DuplicateHandle(GetCurrentProcess(), own, GetCurrentProcess(), &copy, 0, TRUE,
                             DUPLICATE_SAME_ACCESS)) {
            copy = openInheritable(L"NUL", GENERIC_READ);
        }
        childInput = Handle(copy);
        break;
    }
    case VelcanCommandState::Input::Bytes:
        if (DWORD error = input_.connect(false, &childInput)) {
            return failure(VelcanRunEnd::SetupFailed, error);
        }
        input_.next = command_.inputBytes;
        input_.left = command_.inputSize;
        break;
    }
    if (!childInput.valid()) {
        return failure(VelcanRunEnd::SetupFailed, GetLastError());
    }
    // No output observer: the null device. No error observer: errors go with the output.
    if (command_.output == nullptr) {
        childOutput = Handle(openInheritable(L"NUL", GENERIC_WRITE));
        if (!childOutput.valid()) {
            return failure(VelcanRunEnd::SetupFailed, GetLastError());
        }
    } else if (DWORD error = output_.openFor(command_.output, &childOutput)) {
        return failure(VelcanRunEnd::SetupFailed, error);
    }
    if (command_.errors != nullptr) {
        if (DWORD error = errors_.openFor(command_.errors, &childErrors)) {
            return failure(VelcanRunEnd::SetupFailed, error);
        }
    }

    // A job that ends with the run: every process of the run is in it from its first
    // instruction, since the child starts suspended and is put in it before it runs.
    job_ = Handle(CreateJobObjectW(nullptr, nullptr));
    if (!job_.valid()) {
        return failure(VelcanRunEnd::SetupFailed, GetLastError());
    }
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(job_.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);

    // The child inherits its three handles and nothing else.
    HANDLE inherited[3] = {childInput.get(), childOutput.get(),
                           childErrors.valid() ? childErrors.get() : childOutput.get()};
    const DWORD inheritedCount = inherited[2] == inherited[1] ? 2 : 3;
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    std::vector<char> attributes(size);
    auto* list = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(attributes.data());
    if (!InitializeProcThreadAttributeList(list, 1, 0, &size)) {
        return failure(VelcanRunEnd::SetupFailed, GetLastError());
    }
    const bool listed =
        UpdateProcThreadAttribute(list, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, inherited,
                                  inheritedCount * sizeof(HANDLE), nullptr, nullptr) != 0;
    STARTUPINFOEXW startup = {};
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES | STARTF_USESHOWWINDOW;
    startup.StartupInfo.wShowWindow = SW_HIDE;
    startup.StartupInfo.hStdInput = inherited[0];
    startup.StartupInfo.hStdOutput = inherited[1];
    startup.StartupInfo.hStdError = inherited[2];
    startup.lpAttributeList = listed ? list : nullptr;
    PROCESS_INFORMATION info = {};
    DWORD flags =
        CREATE_SUSPENDED | CREATE_UNICODE_ENVIRONMENT | (listed ? EXTENDED_STARTUPINFO_PRESENT : 0);
    BOOL created;
    {
        std::lock_guard<std::mutex> turn(platform::spawnTurn());
        created = CreateProcessW(application.c_str(), &wideLine[0], nullptr, nullptr, TRUE, flags,
                                 &block[0], command_.haveFolder ? folder.c_str() : nullptr,
                                 &startup.StartupInfo, &info);
        const DWORD error = GetLastError();
        childInput.close();
        childOutput.close();
        childErrors.close();
        SetLastError(error);
    }
    const DWORD createError = GetLastError();
    DeleteProcThreadAttributeList(list);
    if (!created) {
        const int error =
            createError == ERROR_FILE_NOT_FOUND || createError == ERROR_PATH_NOT_FOUND ? ENOENT
            : createError == ERROR_ACCESS_DENIED                                       ? EACCES
            : createError == ERROR_NOT_ENOUGH_MEMORY || createError == ERROR_NO_SYSTEM_RESOURCES
                ? ENOMEM
                : ENOEXEC;
        return notRun(error == ENOMEM ? VelcanRunEnd::SetupFailed : VelcanRunEnd::ProgramNotStarted,
                      error, static_cast<long>(createError));
    }
    process_ = Handle(info.hProcess);
    Handle thread(info.hThread);
    if (!AssignProcessToJobObject(job_.get(), info.hProcess)) {
        const DWORD error = GetLastError();
        TerminateProcess(info.hProcess, 1);
        WaitForSingleObject(info.hProcess, INFINITE);
        process_.close();
        return failure(VelcanRunEnd::SetupFailed, error);
    }
    ResumeThread(thread.get());
    return notRun(VelcanRunEnd::Exited, 0, 0);
}

void Run::end(VelcanRunEnd why) {
    if (ending_) {
        return;
    }
    ending_ = true;
    endedBy_ = why;
    input_.close();
    // Windows has no gentle end for a job's processes.
    TerminateJobObject(job_.get(), 1);
    // What still holds the output now is outside the job, out of the run's reach.
    stopReadingAt_ = GetTickCount64() + 250;
}

void Run::loop() {
    const long long limit = millisecondsOf(command_.timeLimit);
    const ULONGLONG deadline = started_ + static_cast<ULONGLONG>(limit);
    if (output_.open()) {
        output_.next(&error_);
    }
    if (errors_.open()) {
        errors_.next(&error_);
    }
    if (input_.open()) {
        input_.feed();
    }
    for (;;) {
        const bool reading = output_.open() || errors_.open();
        if (!reading && childEnded_) {
            return;
        }
        const ULONGLONG now = GetTickCount64();
        if (!ending_ && limit > 0 && now >= deadline) {
            end(VelcanRunEnd::TimedOut);
        }
        if (ending_ && reading && now >= stopReadingAt_) {
            output_.close();
            errors_.close();
            continue;
        }
        HANDLE waits[5];
        DWORD count = 0;
        auto watch = [&](bool on, HANDLE h) { return on ? (waits[count] = h, int(count++)) : -1; };
        const int out = watch(output_.open(), output_.event.get());
        const int err = watch(errors_.open(), errors_.event.get());
        const int in = watch(input_.open(), input_.event.get());
        const int exited = watch(!childEnded_, process_.get());
        const int cancel = watch(!ending_ && cancel_ != nullptr, cancel_);
        DWORD wait = INFINITE;
        if (!ending_ && limit > 0) {
            wait = static_cast<DWORD>(std::min<ULONGLONG>(deadline - now, 0x7FFFFFFF));
        }
        if (ending_ && reading) {
            wait = static_cast<DWORD>(stopReadingAt_ > now ? stopReadingAt_ - now : 0);
        }
        const DWORD r = WaitForMultipleObjects(count, waits, FALSE, wait);
        if (r == WAIT_TIMEOUT || r == WAIT_FAILED || r >= WAIT_OBJECT_0 + count) {
            continue;
        }
        const int fired = static_cast<int>(r - WAIT_OBJECT_0);
        if (fired == cancel) {
            end(VelcanRunEnd::Cancelled);
        } else if (fired == out) {
            output_.completed(&error_);
        } else if (fired == err) {
            errors_.completed(&error_);
        } else if (fired == in) {
            input_.feed();
        } else if (fired == exited) {
            childEnded_ = true;
            input_.close();
            if (command_.endOthersWithChild) {
                end(VelcanRunEnd::Exited);
            }
        }
    }
}

} // namespace
} // namespace velcan

VelcanRunResult VelcanCommand::Run() {
    const int callersErrno = errno;
    const DWORD callersError = GetLastError();
    velcan::Run run(*state_);
    const VelcanRunResult result = run.go();
    SetLastError(callersError);
    errno = callersErrno;
    return result;
}
