// The child of a run on Windows: CreateProcessW (UTF-16 whatever the code page) of a suspended
// child that is put in a job object before its first instruction, with an explicit list of the
// handles it inherits; the job is terminated to end the run, and closed with it.
#include "process/child.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "process/win32.h"
#include "process/windows_quoting.h"

namespace velcan {
namespace sys {
namespace {

VelcanRunResult failure(VelcanRunEnd end, DWORD code) {
    return notRun(end, errnoFromWindowsError(code), static_cast<long>(code));
}

// The caller's environment, one "NAME=VALUE" entry each, in UTF-8.
std::vector<std::string> callersEnvironment() {
    std::vector<std::string> entries;
    wchar_t* block = GetEnvironmentStringsW();
    if (block == nullptr) {
        return entries;
    }
    for (const wchar_t* entry = block; *entry != L'\0'; entry += wcslen(entry) + 1) {
        entries.push_back(utf8(entry));
    }
    FreeEnvironmentStringsW(block);
    return entries;
}

std::wstring systemDirectory(bool windows) {
    wchar_t directory[MAX_PATH + 1];
    const UINT n = windows ? GetWindowsDirectoryW(directory, MAX_PATH + 1)
                           : GetSystemDirectoryW(directory, MAX_PATH + 1);
    return std::wstring(directory, n <= MAX_PATH ? n : 0);
}

// Where the program is: a path as given (with a separator), or looked for in the application's
// directory, the system directories and then the child's PATH, ".exe" added to a name without
// an extension. Not the current directory, where a file of a system program's name would run in
// its place. 0, ENOENT, or EACCES for a directory.
int findProgram(const std::wstring& program, const std::vector<std::string>& environment,
                std::wstring* found) {
    std::wstring searchPath;
    if (program.find_first_of(L"\\/:") == std::wstring::npos) {
        wchar_t self[MAX_PATH + 1];
        const DWORD n = GetModuleFileNameW(nullptr, self, MAX_PATH + 1);
        std::wstring application(self, n <= MAX_PATH ? n : 0);
        application = application.substr(0, application.find_last_of(L"\\/"));
        searchPath = application + L";" + systemDirectory(false) + L";" + systemDirectory(true);
        for (const std::string& entry : environment) {
            std::wstring path;
            if (entry.size() > 5 && _strnicmp(entry.c_str(), "PATH=", 5) == 0 &&
                wide(entry.substr(5), &path)) {
                searchPath += L";" + path;
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

// The program CreateProcessW runs and its line: the line as given ("%%" is "%"), or made from
// the arguments; for a batch file, cmd's. False when a batch file's arguments are refused.
bool programAndLine(const VelcanCommandState& command, const std::vector<std::string>& argv,
                    std::wstring* application, std::string* line) {
    if (command.haveLine) {
        for (std::size_t i = 0; i < command.line.size(); ++i) {
            *line += command.line[i];
            i += command.line[i] == '%' ? 1 : 0;
        }
        return true;
    }
    const std::string found = utf8(*application);
    if (!isBatchFile(found)) {
        *line = quoteForWindows(argv);
        return true;
    }
    std::string cmdLine;
    std::size_t refused = 0;
    if (!lineForCmd(found, argv, &cmdLine, &refused)) {
        return false;
    }
    *application = systemDirectory(false) + L"\\cmd.exe";
    *line = "cmd.exe /d /e:ON /v:OFF /s /c " + cmdLine;
    return true;
}

} // namespace

struct Child::State {
    Handle job;
    Handle process;
};

Child::Child() : state_(new State) {}

// Closing the job ends whatever of the run is left (JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE).
Child::~Child() = default;

bool Child::start(const VelcanCommandState& command, const std::vector<std::string>& argv,
                  StandardHandles* handles, VelcanRunResult* notStarted) {
    const VelcanRunResult notUtf8 =
        notRun(VelcanRunEnd::Refused, EINVAL, ERROR_NO_UNICODE_TRANSLATION);
    const std::vector<std::string> environment = childEnvironment(
        command.clearEnvironment ? std::vector<std::string>() : callersEnvironment(),
        command.environment, true);
    std::wstring program;
    std::wstring application;
    if (!wide(argv[0], &program)) {
        *notStarted = notUtf8;
        return false;
    }
    if (int error = findProgram(program, environment, &application)) {
        *notStarted = notRun(VelcanRunEnd::ProgramNotStarted, error, error);
        return false;
    }
    std::string line;
    if (!programAndLine(command, argv, &application, &line)) {
        *notStarted = notRun(VelcanRunEnd::Refused, EINVAL, ERROR_INVALID_PARAMETER);
        return false;
    }
    std::wstring wideLine;
    std::wstring directory;
    std::wstring block;
    if (!wide(line, &wideLine) || !wide(command.directory, &directory) ||
        !environmentBlock(environment, &block)) {
        *notStarted = notUtf8;
        return false;
    }
    if (command.haveDirectory) {
        const DWORD attributes = GetFileAttributesW(directory.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES) {
            *notStarted = failure(VelcanRunEnd::SetupFailed, ERROR_PATH_NOT_FOUND);
            return false;
        }
        if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
            *notStarted = notRun(VelcanRunEnd::SetupFailed, ENOTDIR, ERROR_DIRECTORY);
            return false;
        }
    }

    // A job that ends with the run: every process of the run is in it from its first
    // instruction, since the child starts suspended and is put in it before it runs.
    State& s = *state_;
    s.job = Handle(own(CreateJobObjectW(nullptr, nullptr)));
    if (!s.job.valid()) {
        *notStarted = failure(VelcanRunEnd::SetupFailed, GetLastError());
        return false;
    }
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(handleOf(s.job.get()), JobObjectExtendedLimitInformation, &limits,
                            sizeof limits);

    // The child inherits its three handles and nothing else.
    const Handle& errors = handles->errors.valid() ? handles->errors : handles->output;
    HANDLE inherited[3] = {handleOf(handles->input.get()), handleOf(handles->output.get()),
                           handleOf(errors.get())};
    const DWORD inheritedCount = inherited[2] == inherited[1] ? 2 : 3;
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    std::vector<char> attributes(size);
    auto* list = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(attributes.data());
    if (!InitializeProcThreadAttributeList(list, 1, 0, &size)) {
        *notStarted = failure(VelcanRunEnd::SetupFailed, GetLastError());
        return false;
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
    const DWORD flags =
        CREATE_SUSPENDED | CREATE_UNICODE_ENVIRONMENT | (listed ? EXTENDED_STARTUPINFO_PRESENT : 0);
    BOOL created;
    DWORD createError;
    {
        std::lock_guard<std::mutex> turn(spawnTurn());
        created = CreateProcessW(application.c_str(), &wideLine[0], nullptr, nullptr, TRUE, flags,
                                 &block[0], command.haveDirectory ? directory.c_str() : nullptr,
                                 &startup.StartupInfo, &info);
        createError = GetLastError();
        *handles = StandardHandles();
    }
    DeleteProcThreadAttributeList(list);
    if (!created) {
        const int error =
            createError == ERROR_FILE_NOT_FOUND || createError == ERROR_PATH_NOT_FOUND ? ENOENT
            : createError == ERROR_ACCESS_DENIED                                       ? EACCES
            : createError == ERROR_NOT_ENOUGH_MEMORY || createError == ERROR_NO_SYSTEM_RESOURCES
                ? ENOMEM
                : ENOEXEC;
        *notStarted =
            notRun(error == ENOMEM ? VelcanRunEnd::SetupFailed : VelcanRunEnd::ProgramNotStarted,
                   error, static_cast<long>(createError));
        return false;
    }
    s.process = Handle(own(info.hProcess));
    Handle thread(own(info.hThread));
    if (!AssignProcessToJobObject(handleOf(s.job.get()), info.hProcess)) {
        const DWORD error = GetLastError();
        TerminateProcess(info.hProcess, 1);
        WaitForSingleObject(info.hProcess, INFINITE);
        *notStarted = failure(VelcanRunEnd::SetupFailed, error);
        return false;
    }
    ResumeThread(handleOf(thread.get()));
    return true;
}

Native Child::endWaitable() const {
    return state_->process.get();
}

bool Child::hasEnded() {
    return WaitForSingleObject(handleOf(state_->process.get()), 0) == WAIT_OBJECT_0;
}

// Windows has no gentle end for a job's processes.
bool Child::endTree(bool) {
    TerminateJobObject(handleOf(state_->job.get()), 1);
    return true;
}

VelcanRunResult Child::reap() {
    HANDLE process = handleOf(state_->process.get());
    DWORD code = 0;
    VelcanRunResult result = notRun(VelcanRunEnd::Exited, 0, 0);
    if (WaitForSingleObject(process, INFINITE) != WAIT_OBJECT_0 ||
        !GetExitCodeProcess(process, &code)) {
        result.systemError = static_cast<long>(GetLastError());
        result.error = errnoFromWindowsError(static_cast<unsigned long>(result.systemError));
    }
    // An exception's code has its two top bits set (0xC0000005, an access violation).
    result.end = code >= 0xC0000000u ? VelcanRunEnd::Signaled : VelcanRunEnd::Exited;
    result.code = static_cast<int>(code);
    return result;
}

} // namespace sys
} // namespace velcan
