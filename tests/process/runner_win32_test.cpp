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

} // namespace
