// What the runner does with a command, its output and its exit on Windows. The children are
// the test helper program (helpers/child.cpp) and cmd.
#include <windows.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "collector.h"
#include "support/emulated_cpu.h"
#include "support/temp_file.h"

namespace {

TEST(WindowsRunner, StandardInputIsTheNullDevice) {
    EXPECT_EQ(launch(child("stdin-kind")), (Result{0, "character device\n"}));
}

TEST(WindowsRunner, ChildIsAskedToHideItsWindow) {
    EXPECT_EQ(launch(child("startup")), (Result{0, "STARTF_USESHOWWINDOW SW_HIDE\n"}));
}

TEST(WindowsRunner, ProgramPathThatDoesNotExistReturns127AndReceivesNothing) {
    EXPECT_EQ(launchExpectingNoRun("C:\\velcan\\nonexistent\\tool.exe arg"), notRunWith(ENOENT));
}

TEST(WindowsRunner, FileThatIsNotAProgramReturns127WithNotExecutableAndReceivesNothing) {
    // Found, but CreateProcess cannot start it.
    const std::string notAProgram = helperProgram("velcan_test_child") + ".txt";
    FILE* file = std::fopen(notAProgram.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    std::fputs("not a program", file);
    std::fclose(file);
    const NotRun r = launchExpectingNoRun(notAProgram);
    std::remove(notAProgram.c_str());
    EXPECT_EQ(r, notRunWith(ENOEXEC));
}

TEST(WindowsRunner, OrdinaryRunEndsWithTheBrokenPipeInErrno) {
    Collector out;
    errno = 0;
    EXPECT_EQ(LaunchBlockingProcess(child("out x").c_str(), &out), 0);
    EXPECT_EQ(errno, 109); // ERROR_BROKEN_PIPE, stored as it is
}

TEST(WindowsRunner, CmdRunsBuiltInCommandsAndPassesTheirExitCode) {
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess("cmd /c echo hello", &out), 0);
    EXPECT_EQ(out.output, "hello\r\n");
    EXPECT_EQ(LaunchBlockingProcess("cmd /c exit 5", &out), 5);
}

TEST(WindowsRunner, EnvironmentIsInherited) {
    SetEnvironmentVariableA("VELCAN_TEST_INHERITED", "from the caller");
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess("cmd /c echo %%VELCAN_TEST_INHERITED%%", &out), 0);
    SetEnvironmentVariableA("VELCAN_TEST_INHERITED", nullptr);
    EXPECT_EQ(out.output, "from the caller\r\n");
}

// Exit codes are Windows' 32 bits, handed back as the int they make.
TEST(WindowsRunner, ExitCodeAbove255ComesBackWhole) {
    EXPECT_EQ(launch(child("exit 300")), (Result{300, ""}));
    EXPECT_EQ(launch(child("exit 70000")), (Result{70000, ""}));
}

TEST(WindowsRunner, ChildEndedByAnUnhandledExceptionReturnsItsCodeAsANegativeInt) {
    Collector out;
    const int code = LaunchBlockingProcess(child("out before raise C0000094").c_str(), &out);
    EXPECT_EQ(code, static_cast<int>(0xC0000094u)); // -1073741676, an integer division by zero
    EXPECT_EQ(out.output, "before");
}

TEST(WindowsRunner, ChildEndedByAnAccessViolationReturnsTheExceptionCodeAsANegativeInt) {
    Collector out;
    const int code = LaunchBlockingProcess(child("out before crash").c_str(), &out);
    EXPECT_EQ(out.output, "before");
    if (onEmulatedCpu()) {
        // qemu-i386 hands Wine the fault without the page fault's trap number, and Wine then
        // raises an illegal instruction (0xC000001D) in place of the access violation.
        EXPECT_TRUE(code == static_cast<int>(0xC0000005u) || code == static_cast<int>(0xC000001Du))
            << "code " << code;
    } else {
        EXPECT_EQ(code, static_cast<int>(0xC0000005u)); // -1073741819
    }
}

// A path in the ANSI code page as the wide functions take it, with the \\?\\ prefix that
// lets them reach past MAX_PATH.
std::wstring longPath(const std::string& path) {
    std::wstring wide(path.size(), L'\0');
    const int n = MultiByteToWideChar(CP_ACP, 0, path.data(), static_cast<int>(path.size()),
                                      &wide[0], static_cast<int>(wide.size()));
    wide.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return L"\\\\?\\" + wide;
}

// Removes a directory and what is in it, however long its paths (cmd's rd does not reach there).
void removeTree(const std::wstring& directory) {
    WIN32_FIND_DATAW entry;
    const HANDLE find = FindFirstFileW((directory + L"\\*").c_str(), &entry);
    if (find != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring name = entry.cFileName;
            if (name == L"." || name == L"..") {
                continue;
            }
            const std::wstring path = directory + L"\\" + name;
            if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
                removeTree(path);
            } else {
                DeleteFileW(path.c_str());
            }
        } while (FindNextFileW(find, &entry));
        FindClose(find);
    }
    RemoveDirectoryW(directory.c_str());
}

// A directory of the test's own, removed with what is in it.
struct TempDirectory {
    TempDirectory() {
        char name[MAX_PATH + 1];
        if (GetTempFileNameA(existingDirectory().c_str(), "vdr", 0, name) == 0) {
            std::abort(); // never a directory of no name: removing it would empty another
        }
        DeleteFileA(name);
        CreateDirectoryA(name, nullptr);
        path = name;
    }
    ~TempDirectory() { removeTree(longPath(path)); }
    std::string path;
};

// Runs with the current directory set to `directory` for the length of the call.
Result launchIn(const std::string& directory, const std::string& command) {
    char saved[MAX_PATH + 1];
    GetCurrentDirectoryA(sizeof saved, saved);
    SetCurrentDirectoryA(directory.c_str());
    const Result r = launch(command);
    SetCurrentDirectoryA(saved);
    return r;
}

// A program is looked for in the current directory before the system directories: a file of the
// same name there runs in place of the system's. A full path runs the one it names.
TEST(WindowsRunner, ProgramInTheCurrentDirectoryRunsInPlaceOfTheSystemsAndAFullPathAvoidsIt) {
    TempDirectory directory;
    ASSERT_TRUE(CopyFileA(helperProgram("velcan_test_child").c_str(),
                          (directory.path + "\\cmd.exe").c_str(), FALSE));
    EXPECT_EQ(launchIn(directory.path, "cmd out planted"), (Result{0, "planted"}));
    char system[MAX_PATH + 1];
    const UINT n = GetSystemDirectoryA(system, sizeof system);
    const std::string systemCmd = std::string(system, n) + "\\cmd.exe";
    EXPECT_EQ(launchIn(directory.path, systemCmd + " /c echo system"), (Result{0, "system\r\n"}));
}

// A batch file that prints each of its first three arguments as cmd hands them to it.
std::string argumentPrinter(const std::string& directory, const char* name) {
    const std::string path = directory + "\\" + name;
    FILE* file = std::fopen(path.c_str(), "wb");
    std::fputs("@echo off\r\necho [%1] [%2] [%3]\r\n", file);
    std::fclose(file);
    return path;
}

TEST(WindowsRunner, BatchAndCmdFilesRunWithTheirArgumentsAsCmdReadsThem) {
    TempDirectory directory;
    for (const char* name : {"args.bat", "args.cmd"}) {
        // Double quotes group and stay with the argument.
        EXPECT_EQ(launch(argumentPrinter(directory.path, name) + " \"a b\" plain x"),
                  (Result{0, "[\"a b\"] [plain] [x]\r\n"}))
            << name;
    }
}

// A C program gets the same line through its runtime's own splitting: quotes group and are
// removed, and %, ^, & and | are ordinary characters (no cmd reads them).
TEST(WindowsRunner, ACProgramReceivesSpecialCharactersAsTheyAre) {
    EXPECT_EQ(launch(child("args \"a b\" 50%% x^y a&b c|d")),
              (Result{0, "[a b][50%][x^y][a&b][c|d]"}));
}

// cmd reads a batch file's command line as its own: an & in an argument ends the batch
// file's command and starts another. This is why text from elsewhere must never become a
// batch file's argument.
TEST(WindowsRunner, AnAmpersandInABatchFilesArgumentRunsAnotherCommand) {
    TempDirectory directory;
    EXPECT_EQ(launch(argumentPrinter(directory.path, "args.bat") + " a&echo injected"),
              (Result{0, "[a] [] []\r\ninjected\r\n"}));
}

// A program whose full path is longer than MAX_PATH (260 characters) is not found: 127 with
// ENOENT, never another program and never a crash.
TEST(WindowsRunner, ProgramPathLongerThanMaxPathGives127WithNoSuchFile) {
    TempDirectory directory;
    // Made through the wide functions with the \\?\\ prefix, which alone take such paths.
    std::string path = directory.path;
    while (path.size() < 280) {
        path += "\\" + std::string(40, 'd');
        ASSERT_TRUE(CreateDirectoryW(longPath(path).c_str(), nullptr)) << path;
    }
    const std::string program = path + "\\child.exe";
    ASSERT_TRUE(CopyFileW(longPath(helperProgram("velcan_test_child")).c_str(),
                          longPath(program).c_str(), FALSE));
    EXPECT_EQ(launchExpectingNoRun(program + " out ran"), notRunWith(ENOENT));
}

// A letter outside ASCII in the ANSI code page, as that code page writes it ("\xe9", e with an
// acute accent, under code page 1252); empty where the code page has no such letter.
std::string ansiLetter() {
    char letter[8] = {0};
    BOOL lost = FALSE;
    const int n = WideCharToMultiByte(CP_ACP, 0, L"\u00e9", 1, letter, sizeof letter, nullptr,
                                      GetACP() == CP_UTF8 ? nullptr : &lost);
    return n > 0 && !lost ? std::string(letter, static_cast<size_t>(n)) : std::string();
}

// Paths as users have them: a program and a history file in a "Program Files"-like directory
// whose name has spaces, parentheses and a letter outside ASCII. The program is named in
// double quotes; the history file is read by name.
TEST(WindowsPaths, ProgramAndHistoryInADirectoryWithSpacesAndANonAsciiLetterWork) {
    TempDirectory directory;
    const std::string letter = ansiLetter();
    ASSERT_FALSE(letter.empty()) << "code page " << GetACP() << " has no e with an acute accent";
    const std::string programs = directory.path + "\\Program Files (x86)";
    const std::string tools = programs + "\\Velcan Caf" + letter + " Tools";
    ASSERT_TRUE(CreateDirectoryA(programs.c_str(), nullptr));
    ASSERT_TRUE(CreateDirectoryA(tools.c_str(), nullptr));
    const std::string program = tools + "\\child.exe";
    ASSERT_TRUE(CopyFileA(helperProgram("velcan_test_child").c_str(), program.c_str(), FALSE));
    EXPECT_EQ(launch("\"" + program + "\" out ran"), (Result{0, "ran"}));

    const std::string history = tools + "\\version history.xml";
    FILE* file = std::fopen(history.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    std::fputs("<h><Version number=\"1.0\" date=\"d\"><FeatureDescription>f</FeatureDescription>"
               "</Version></h>",
               file);
    std::fclose(file);
    const TUpdateVersionInfo info = VelcanParseUpdateFile(history.c_str());
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_EQ(info.versions[0].featureDescriptions, std::vector<std::string>{"f"});
}

// cmd /c start /b leaves a grandchild holding the output: the call returns once every holder
// of the pipe has closed it, so it waits for the grandchild, and gets what it writes after
// cmd has ended.
TEST(WindowsRunner, GrandchildStartedWithStartBKeepsTheCallUntilItEnds) {
    Collector out;
    const std::string command = "cmd /c start /b " + child("sleep 500 out late") + " & echo early";
    EXPECT_EQ(LaunchBlockingProcess(command.c_str(), &out), 0);
    EXPECT_EQ(out.output, "early\r\nlate");
}

} // namespace
