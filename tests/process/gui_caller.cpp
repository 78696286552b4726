// A Windows program of the GUI subsystem, with no console, that uses all three services as a
// desktop application does: reads a history file, feeds a document to an expatpp reader, and
// runs a console program whose output is more than the pipe holds. Exit status 0 when each
// did what it should; otherwise the first failure's number, with a line on stderr where Wine
// gives the program one.
//   velcan_gui_caller HISTORY-FILE
#include <windows.h>

#include <cstdio>
#include <string>

#include <velcan/velcan.h>

#include "collector.h"

namespace {

int fail(int number, const std::string& what) {
    std::fprintf(stderr, "gui caller: %s\n", what.c_str());
    return number;
}

class ElementCounter : public expatpp {
  public:
    int elements = 0;
    void startElement(const char*, const char**) override { ++elements; }
};

struct WindowCount {
    DWORD process;
    int windows;
};

BOOL CALLBACK countVisibleWindow(HWND window, LPARAM data) {
    WindowCount* count = reinterpret_cast<WindowCount*>(data);
    DWORD owner = 0;
    GetWindowThreadProcessId(window, &owner);
    if (owner == count->process && IsWindowVisible(window)) {
        ++count->windows;
    }
    return TRUE;
}

// The visible top-level windows of this process.
int visibleWindowsOfThisProcess() {
    WindowCount count = {GetCurrentProcessId(), 0};
    EnumWindows(countVisibleWindow, reinterpret_cast<LPARAM>(&count));
    return count.windows;
}

std::string helperBesideThis(const char* name) {
    char self[MAX_PATH + 1];
    const DWORD n = GetModuleFileNameA(nullptr, self, sizeof self);
    const std::string path(self, n);
    return path.substr(0, path.find_last_of("\\/") + 1) + name;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        return fail(2, "usage: velcan_gui_caller HISTORY-FILE");
    }
    if (GetConsoleWindow() != nullptr) {
        return fail(3, "started with a console: not a GUI-subsystem program");
    }
    const TUpdateVersionInfo history = VelcanParseUpdateFile(argv[1]);
    if (history.versions.size() != 12 || history.versions[0].number != "4.2.0") {
        return fail(4,
                    "the history read as " + std::to_string(history.versions.size()) + " versions");
    }
    ElementCounter reader;
    const char document[] = "<a><b/><c>text</c></a>";
    if (reader.XML_Parse(document, sizeof document - 1, 1) == 0 || reader.elements != 3) {
        return fail(5, "the reader saw " + std::to_string(reader.elements) + " elements");
    }
    const int windowsBefore = visibleWindowsOfThisProcess();
    // 20000 numbered lines (about 108 KiB, far more than the pipe holds), then code 7.
    Collector out;
    const std::string command = helperBesideThis("velcan_test_child.exe") + " lines 20000 exit 7";
    const int code = LaunchBlockingProcess(command.c_str(), &out);
    std::string expected;
    for (int n = 1; n <= 20000; ++n) {
        expected += std::to_string(n) + "\n";
    }
    if (code != 7) {
        return fail(6, "the console program's code came back as " + std::to_string(code));
    }
    if (out.output != expected) {
        return fail(7, "the output arrived as " + std::to_string(out.output.size()) +
                           " bytes, not the 20000 lines in order");
    }
    if (GetConsoleWindow() != nullptr || visibleWindowsOfThisProcess() != windowsBefore) {
        return fail(8, "a console or a window was left behind");
    }
    return 0;
}
