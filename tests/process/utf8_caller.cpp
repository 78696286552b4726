// A Windows program whose manifest asks for the UTF-8 code page (activeCodePage), as programs
// written for UTF-8 paths are: its narrow strings, and so the paths it hands the library, are
// UTF-8. It runs a program and reads a history file in a directory whose name has letters of
// three scripts. Exit status 0 when both work, 77 (skipped) where the system does not honour
// the manifest, otherwise the first failure's number with a line on stderr.
#include <windows.h>

#include <cstdio>
#include <string>

#include <velcan/velcan.h>

#include "collector.h"

namespace {

int fail(int number, const std::string& what) {
    std::fprintf(stderr, "utf8 caller: %s\n", what.c_str());
    return number;
}

} // namespace

int main() {
    if (GetACP() != CP_UTF8) {
        std::fprintf(stderr, "utf8 caller: the code page is %u: the manifest is not honoured\n",
                     GetACP());
        return 77;
    }
    char self[MAX_PATH * 3];
    const DWORD n = GetModuleFileNameA(nullptr, self, sizeof self);
    const std::string here(self, n);
    const std::string child = here.substr(0, here.find_last_of('\\') + 1) + "velcan_test_child.exe";
    char temp[MAX_PATH * 3];
    const DWORD t = GetTempPathA(sizeof temp, temp);
    // "Café ☕ 工具", in UTF-8.
    const std::string directory = std::string(temp, t) +
                                  "velcan Caf\xc3\xa9 \xe2\x98\x95 \xe5\xb7\xa5\xe5\x85\xb7 " +
                                  std::to_string(GetCurrentProcessId());
    if (!CreateDirectoryA(directory.c_str(), nullptr)) {
        return fail(2, "cannot make " + directory);
    }
    const std::string program = directory + "\\child.exe";
    const std::string history = directory + "\\history.xml";
    int result = 0;
    if (!CopyFileA(child.c_str(), program.c_str(), FALSE)) {
        result = fail(3, "cannot copy the child to " + program);
    } else {
        Collector out;
        const int code = LaunchBlockingProcess(("\"" + program + "\" out ran").c_str(), &out);
        if (code != 0 || out.output != "ran") {
            result = fail(4, "the program in " + directory + " gave " + std::to_string(code) +
                                 " and '" + out.output + "'");
        }
    }
    if (result == 0) {
        FILE* file = std::fopen(history.c_str(), "wb");
        if (file == nullptr) {
            result = fail(5, "cannot write " + history);
        } else {
            std::fputs("<h><Version number=\"1.0\" date=\"d\"/></h>", file);
            std::fclose(file);
            if (VelcanParseUpdateFile(history.c_str()).versions.size() != 1) {
                result = fail(6, "the history in " + directory + " did not read");
            }
        }
    }
    DeleteFileA(program.c_str());
    DeleteFileA(history.c_str());
    RemoveDirectoryA(directory.c_str());
    return result;
}
