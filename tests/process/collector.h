// Observers for the runner's tests.
#ifndef VELCAN_TESTS_PROCESS_COLLECTOR_H
#define VELCAN_TESTS_PROCESS_COLLECTOR_H

#include <cerrno>
#include <ostream>
#include <string>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
#else
#include <signal.h>
#include <unistd.h>
#endif

#include <velcan/velcan.h>

// Gathers the output, handing out one buffer of a chosen size, and checks the NUL that
// must follow every piece.
class Collector : public IBlockingProcessObserver {
  public:
    explicit Collector(int capacity = 4096)
        : buffer_(static_cast<std::size_t>(capacity) + 1, 'x'), capacity_(capacity) {}

    std::string output;
    int bufferCalls = 0;
    int pieces = 0;
    bool nulAfterEveryPiece = true;

    void GetOutputBuffer(char** buffer, int* capacity) override {
        ++bufferCalls;
        *buffer = buffer_.data();
        *capacity = capacity_;
    }
    void OutputReceived(int count) override {
        ++pieces;
        nulAfterEveryPiece =
            nulAfterEveryPiece && count >= 1 && buffer_[static_cast<std::size_t>(count)] == '\0';
        output.append(buffer_.data(), static_cast<std::size_t>(count));
        onPiece();
    }
    virtual void onPiece() {}

  private:
    std::vector<char> buffer_;
    int capacity_;
};

// What a run gives back: its exit code and all its output.
struct Result {
    int code;
    std::string output;
};

inline bool operator==(const Result& a, const Result& b) {
    return a.code == b.code && a.output == b.output;
}

inline std::ostream& operator<<(std::ostream& out, const Result& r) {
    return out << "{code " << r.code << ", output \"" << r.output << "\"}";
}

// Runs a command, gathering its output through a Collector of the given capacity.
inline Result launch(const std::string& commandLine, int capacity = 4096) {
    Collector out(capacity);
    const int code = LaunchBlockingProcess(commandLine.c_str(), &out);
    return {code, out.output};
}

// What a run that the runner refuses or cannot start leaves behind.
struct NotRun {
    int code;
    int error;
    int observerCalls;
};

inline bool operator==(const NotRun& a, const NotRun& b) {
    return a.code == b.code && a.error == b.error && a.observerCalls == b.observerCalls;
}

inline std::ostream& operator<<(std::ostream& out, const NotRun& r) {
    return out << "{code " << r.code << ", errno " << r.error << ", observer calls "
               << r.observerCalls << "}";
}

// What such a run must leave: code 127, errno set to error, no observer operation called.
inline NotRun notRunWith(int error) {
    return {127, error, 0};
}

inline NotRun launchExpectingNoRun(const std::string& commandLine) {
    Collector out;
    errno = 0;
    const int code = LaunchBlockingProcess(commandLine.c_str(), &out);
    return {code, errno, out.bufferCalls + out.pieces};
}

// A program built with the tests, beside the running test program.
inline std::string helperProgram(const char* name) {
#if defined(_WIN32)
    char self[MAX_PATH + 1];
    const DWORD n = GetModuleFileNameA(nullptr, self, sizeof self);
    const std::string path(self, n);
    return path.substr(0, path.find_last_of("\\/") + 1) + name + ".exe";
#else
    char self[4096];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof self);
    const std::string path(self, n > 0 ? static_cast<std::size_t>(n) : 0);
    return path.substr(0, path.find_last_of('/') + 1) + name;
#endif
}

// Whether the program runs under Wine (whose ntdll has wine_get_version), for the few of Wine's
// own failures a test must tell from the runner's.
inline bool runsUnderWine() {
#if defined(_WIN32)
    const HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
#else
    return false;
#endif
}

// Ends a process at once.
inline void killProcess(long pid) {
#if defined(_WIN32)
    HANDLE process = OpenProcess(PROCESS_TERMINATE, FALSE, static_cast<DWORD>(pid));
    if (process != nullptr) {
        TerminateProcess(process, 137);
        CloseHandle(process);
    }
#else
    kill(static_cast<pid_t>(pid), SIGKILL);
#endif
}

// The test child (helpers/child.cpp) with the given actions.
inline std::string child(const std::string& actions) {
    return helperProgram("velcan_test_child") + " " + actions;
}

#if defined(_WIN32)
// A program that prints its arguments and a line feed.
inline std::string echoProgram() {
    return helperProgram("velcan_echo");
}
#else
inline std::string echoProgram() {
    return "echo";
}

inline std::string shell(const std::string& script) {
    return "sh -c '" + script + "'";
}
#endif

#endif
