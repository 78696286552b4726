// A child for the runner's tests: does what its arguments say, in order, and reports on
// what it was given.
//   out TEXT / err TEXT  write TEXT ("\n" for a line end) to standard output / error
//   sleep MS             sleep
//   stdin                read standard input to its end; print the count of bytes
//   stdin-kind           print what standard input is (Windows: a file type)
//   startup              print how the window was asked to be shown
//   zeros N              write N zero bytes to standard output
//   lines N              write the lines 1 to N to standard output
//   fds                  print its open descriptors, one line (POSIX; "n/a" elsewhere)
//   pid                  print its process id and a line end
//   args WORD...         print each remaining word as [WORD]
//   wargs WORD...        as args, the words as the program got them in UTF-16 (Windows),
//                        printed in UTF-8
//   exit N               end with code N
//   crash                end by an access violation, unhandled (Windows: the process ends with
//                        the exception's code, 0xC0000005, and no debugger is asked in)
//   raise CODE           end by raising the exception CODE (hexadecimal), unhandled (Windows;
//                        elsewhere as crash)
//   cat                  copy standard input to standard output as it comes
//   cwd                  print the current directory and a line end
//   env NAME             print NAME's value and a line end, or "(unset)"
//   grandchild MS        start a copy of this program that sleeps MS, then prints
//                        "grandchild ended"; print its process id and a line end once it
//                        exists (so a test knows the whole tree however slowly the copy
//                        starts); it inherits the standard handles and is not waited for
//   ignore-term          ignore SIGTERM from here on (POSIX; nothing elsewhere)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "../process_tree.h"

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <shellapi.h>
#else
#include <csignal>
#include <dirent.h>
#include <spawn.h>
#include <unistd.h>
extern char** environ;
#endif

namespace {

std::string unescape(const char* text) {
    std::string s;
    for (const char* p = text; *p != '\0'; ++p) {
        if (p[0] == '\\' && p[1] == 'n') {
            s += '\n';
            ++p;
        } else {
            s += *p;
        }
    }
    return s;
}

void write(FILE* stream, const std::string& s) {
    std::fwrite(s.data(), 1, s.size(), stream);
    std::fflush(stream);
}

std::string inputKind() {
#if defined(_WIN32)
    switch (GetFileType(GetStdHandle(STD_INPUT_HANDLE))) {
    case FILE_TYPE_CHAR:
        return "character device";
    case FILE_TYPE_PIPE:
        return "pipe";
    case FILE_TYPE_DISK:
        return "file";
    default:
        return "unknown";
    }
#else
    return "input";
#endif
}

std::string startup() {
#if defined(_WIN32)
    STARTUPINFOA info;
    GetStartupInfoA(&info);
    std::string s = (info.dwFlags & STARTF_USESHOWWINDOW) != 0 ? "STARTF_USESHOWWINDOW" : "-";
    s += info.wShowWindow == SW_HIDE ? " SW_HIDE" : " shown " + std::to_string(info.wShowWindow);
    return s + "\n";
#else
    return "no windows\n";
#endif
}

// The descriptors this process has open, as "0 1 2", not counting the one that lists them.
std::string openDescriptors() {
#if defined(_WIN32)
    return "n/a\n";
#else
    DIR* dir = opendir("/proc/self/fd");
    if (dir == nullptr) {
        return "?\n";
    }
    std::string list;
    for (const dirent* entry = readdir(dir); entry != nullptr; entry = readdir(dir)) {
        if (entry->d_name[0] != '.' && std::atoi(entry->d_name) != dirfd(dir)) {
            list += list.empty() ? entry->d_name : std::string(" ") + entry->d_name;
        }
    }
    closedir(dir);
    return list + "\n";
#endif
}

#if defined(_WIN32)
LONG WINAPI endByTheException(EXCEPTION_POINTERS*) {
    return EXCEPTION_EXECUTE_HANDLER; // the process ends with the exception's code
}
#endif

#if defined(_WIN32)
// An unhandled exception then ends the process with its code, and no debugger is asked in.
void endByUnhandledExceptions() {
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    SetUnhandledExceptionFilter(endByTheException);
}
#endif

void crash() {
#if defined(_WIN32)
    endByUnhandledExceptions();
    // A page no one may touch (under Wine the page at address 0 can be written).
    int* volatile forbidden =
        static_cast<int*>(VirtualAlloc(nullptr, 4096, MEM_COMMIT | MEM_RESERVE, PAGE_NOACCESS));
    *forbidden = 1;
#else
    std::abort();
#endif
}

std::string currentDirectory() {
#if defined(_WIN32)
    wchar_t wide[32768];
    const DWORD n = GetCurrentDirectoryW(32768, wide);
    char utf8[4 * 32768];
    const int m = WideCharToMultiByte(CP_UTF8, 0, wide, static_cast<int>(n), utf8, sizeof utf8,
                                      nullptr, nullptr);
    return std::string(utf8, static_cast<std::size_t>(m));
#else
    char directory[4096];
    return getcwd(directory, sizeof directory) != nullptr ? directory : "?";
#endif
}

long startGrandchild(const char* self, const char* sleep) {
#if defined(_WIN32)
    (void)self;
    wchar_t program[MAX_PATH + 1];
    GetModuleFileNameW(nullptr, program, MAX_PATH + 1);
    std::wstring line = L"\"" + std::wstring(program) + L"\" sleep " + wideOf(sleep) +
                        L" out \"grandchild ended\\n\"";
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION info;
    // Wine now and then fails a start with ERROR_INTERNAL_ERROR; a second try starts it.
    int tries = 0;
    while (!CreateProcessW(program, &line[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                           &info)) {
        if (++tries == 3) {
            return -1;
        }
    }
    CloseHandle(info.hThread);
    CloseHandle(info.hProcess);
    return static_cast<long>(info.dwProcessId);
#else
    char* const args[] = {const_cast<char*>(self),
                          const_cast<char*>("sleep"),
                          const_cast<char*>(sleep),
                          const_cast<char*>("out"),
                          const_cast<char*>("grandchild ended\\n"),
                          nullptr};
    pid_t pid;
    return posix_spawn(&pid, "/proc/self/exe", nullptr, nullptr, args, environ) == 0
               ? static_cast<long>(pid)
               : -1;
#endif
}

} // namespace

int main(int argc, char** argv) {
#if defined(_WIN32)
    // Bytes as they are: no line-end translation.
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    _setmode(_fileno(stdin), _O_BINARY);
#endif
    for (int i = 1; i < argc; ++i) {
        const std::string action = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : "";
        if (action == "out" || action == "err") {
            write(action == "out" ? stdout : stderr, unescape(value));
            ++i;
        } else if (action == "sleep") {
            std::this_thread::sleep_for(std::chrono::milliseconds(std::atoi(value)));
            ++i;
        } else if (action == "stdin") {
            char buffer[4096];
            std::size_t total = 0;
            std::size_t n;
            while ((n = std::fread(buffer, 1, sizeof buffer, stdin)) > 0) {
                total += n;
            }
            write(stdout, "stdin: " + std::to_string(total) + " bytes\n");
        } else if (action == "stdin-kind") {
            write(stdout, inputKind() + "\n");
        } else if (action == "startup") {
            write(stdout, startup());
        } else if (action == "zeros") {
            const std::string zeros(static_cast<std::size_t>(std::atol(value)), '\0');
            write(stdout, zeros);
            ++i;
        } else if (action == "lines") {
            std::string lines;
            for (long n = 1; n <= std::atol(value); ++n) {
                lines += std::to_string(n) + "\n";
            }
            write(stdout, lines);
            ++i;
        } else if (action == "pid") {
#if defined(_WIN32)
            write(stdout, std::to_string(GetCurrentProcessId()) + "\n");
#else
            write(stdout, std::to_string(getpid()) + "\n");
#endif
        } else if (action == "fds") {
            write(stdout, openDescriptors());
        } else if (action == "args") {
            for (++i; i < argc; ++i) {
                write(stdout, std::string("[") + argv[i] + "]");
            }
        } else if (action == "wargs") {
#if defined(_WIN32)
            int count = 0;
            LPWSTR* words = CommandLineToArgvW(GetCommandLineW(), &count);
            for (int k = i + 1; k < count; ++k) {
                char utf8[4096];
                const int m = WideCharToMultiByte(CP_UTF8, 0, words[k], -1, utf8, sizeof utf8,
                                                  nullptr, nullptr);
                write(stdout,
                      "[" + std::string(utf8, m > 0 ? static_cast<std::size_t>(m) - 1 : 0) + "]");
            }
            LocalFree(words);
#else
            for (int k = i + 1; k < argc; ++k) {
                write(stdout, std::string("[") + argv[k] + "]");
            }
#endif
            i = argc;
        } else if (action == "cat") {
            char buffer[4096];
            std::size_t n;
            while ((n = std::fread(buffer, 1, sizeof buffer, stdin)) > 0) {
                std::fwrite(buffer, 1, n, stdout);
                std::fflush(stdout);
            }
        } else if (action == "cwd") {
            write(stdout, currentDirectory() + "\n");
        } else if (action == "env") {
            write(stdout, variableOf(value) + "\n");
            ++i;
        } else if (action == "grandchild") {
            const long pid = startGrandchild(argv[0], value);
            if (pid < 0) {
                write(stderr, "cannot start the grandchild\n");
                return 99;
            }
            write(stdout, std::to_string(pid) + "\n");
            ++i;
        } else if (action == "ignore-term") {
#if !defined(_WIN32)
            std::signal(SIGTERM, SIG_IGN);
#endif
        } else if (action == "exit") {
            return std::atoi(value);
        } else if (action == "crash") {
            crash();
        } else if (action == "raise") {
#if defined(_WIN32)
            endByUnhandledExceptions();
            RaiseException(static_cast<DWORD>(std::strtoul(value, nullptr, 16)),
                           EXCEPTION_NONCONTINUABLE, 0, nullptr);
#endif
            crash();
        } else {
            std::fprintf(stderr, "child: unknown action %s\n", action.c_str());
            return 2;
        }
    }
    return 0;
}
