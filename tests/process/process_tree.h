// What the runner's tests look at around a run, on either system: directories, variables and
// whether a process has ended.
#ifndef VELCAN_TESTS_PROCESS_PROCESS_TREE_H
#define VELCAN_TESTS_PROCESS_PROCESS_TREE_H

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#if defined(_WIN32)
#include <windows.h>
#else
#include <csignal>
#include <sys/stat.h>
#include <unistd.h>
#endif

inline std::wstring wideOf(const std::string& utf8) {
#if defined(_WIN32)
    std::wstring wide(utf8.size() + 1, L'\0');
    const int n =
        MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), -1, &wide[0], static_cast<int>(wide.size()));
    wide.resize(n > 0 ? static_cast<std::size_t>(n) - 1 : 0);
    return wide;
#else
    return std::wstring(utf8.begin(), utf8.end());
#endif
}

// A new, empty directory under the system's temporary directory (UTF-8).
inline std::string temporaryDirectory(const std::string& name) {
#if defined(_WIN32)
    wchar_t base[MAX_PATH + 1];
    const DWORD n = GetTempPathW(MAX_PATH + 1, base);
    std::wstring directory =
        std::wstring(base, n) + wideOf(name) + L"-" + std::to_wstring(GetCurrentProcessId());
    CreateDirectoryW(directory.c_str(), nullptr);
    char utf8[4 * MAX_PATH];
    const int m =
        WideCharToMultiByte(CP_UTF8, 0, directory.c_str(), -1, utf8, sizeof utf8, nullptr, nullptr);
    return std::string(utf8, m > 0 ? static_cast<std::size_t>(m) - 1 : 0);
#else
    const char* tmp = std::getenv("TMPDIR");
    std::string directory =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/" + name + "-XXXXXX";
    return mkdtemp(&directory[0]) != nullptr ? directory : "";
#endif
}

inline void removeDirectory(const std::string& directory) {
#if defined(_WIN32)
    const std::wstring wide = wideOf(directory);
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW((wide + L"\\*").c_str(), &found);
    if (search != INVALID_HANDLE_VALUE) {
        do {
            DeleteFileW((wide + L"\\" + found.cFileName).c_str());
        } while (FindNextFileW(search, &found));
        FindClose(search);
    }
    RemoveDirectoryW(wide.c_str());
#else
    std::system(("rm -rf '" + directory + "'").c_str());
#endif
}

// Whether two names are of one directory.
inline bool sameDirectory(const std::string& a, const std::string& b) {
#if defined(_WIN32)
    auto id = [](const std::string& path, BY_HANDLE_FILE_INFORMATION* info) {
        HANDLE h = CreateFileW(wideOf(path).c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                               OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
        const bool ok = h != INVALID_HANDLE_VALUE && GetFileInformationByHandle(h, info);
        if (h != INVALID_HANDLE_VALUE) {
            CloseHandle(h);
        }
        return ok;
    };
    BY_HANDLE_FILE_INFORMATION x, y;
    return id(a, &x) && id(b, &y) && x.dwVolumeSerialNumber == y.dwVolumeSerialNumber &&
           x.nFileIndexHigh == y.nFileIndexHigh && x.nFileIndexLow == y.nFileIndexLow;
#else
    struct stat x, y;
    return stat(a.c_str(), &x) == 0 && stat(b.c_str(), &y) == 0 && x.st_dev == y.st_dev &&
           x.st_ino == y.st_ino;
#endif
}

// Sets a variable of this process (UTF-8).
inline void setVariable(const char* name, const char* value) {
#if defined(_WIN32)
    SetEnvironmentVariableW(wideOf(name).c_str(), wideOf(value).c_str());
#else
    setenv(name, value, 1);
#endif
}

inline std::string variableOf(const char* name) {
#if defined(_WIN32)
    wchar_t value[32768];
    const DWORD n = GetEnvironmentVariableW(wideOf(name).c_str(), value, 32768);
    if (n == 0 && GetLastError() == ERROR_ENVVAR_NOT_FOUND) {
        return "(unset)";
    }
    char utf8[4 * 32768];
    const int m = WideCharToMultiByte(CP_UTF8, 0, value, static_cast<int>(n), utf8, sizeof utf8,
                                      nullptr, nullptr);
    return std::string(utf8, static_cast<std::size_t>(m));
#else
    const char* value = std::getenv(name);
    return value != nullptr ? value : "(unset)";
#endif
}

// Whether the process has ended (a zombie no one has reaped yet counts as ended), waiting for
// it to go for at most a minute: a process a run ended may still be on its way out when the
// run returns, on a busy machine.
inline bool processEnds(long pid) {
#if defined(_WIN32)
    HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, static_cast<DWORD>(pid));
    if (process == nullptr) {
        return true;
    }
    const bool ended = WaitForSingleObject(process, 60000) == WAIT_OBJECT_0;
    CloseHandle(process);
    return ended;
#else
    for (int i = 0; i < 6000; ++i) {
        if (kill(static_cast<pid_t>(pid), 0) != 0) {
            return true;
        }
        std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
        std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
        const std::size_t close = text.rfind(')');
        if (close != std::string::npos && close + 2 < text.size() &&
            (text[close + 2] == 'Z' || text[close + 2] == 'X')) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
#endif
}

#endif
