// What the runner does with a command, its output and its exit on Windows. The children are
// the test helper program (helpers/child.cpp) and cmd.
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "collector.h"

namespace {

// The helper with the given actions.
std::string child(const std::string& actions) {
    return helperProgram("velcan_test_child") + " " + actions;
}

TEST(WindowsRunner, StandardInputIsTheNullDevice) {
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(child("stdin-kind").c_str(), &out), 0);
    EXPECT_EQ(out.output, "character device\n");
}

TEST(WindowsRunner, ChildIsAskedToHideItsWindow) {
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(child("startup").c_str(), &out), 0);
    EXPECT_EQ(out.output, "STARTF_USESHOWWINDOW SW_HIDE\n");
}

TEST(WindowsRunner, ProgramPathThatDoesNotExistReturns127AndReceivesNothing) {
    EXPECT_EQ(launchExpectingNoRun("C:\\velcan\\nonexistent\\tool.exe arg"), notRunWith(ENOENT));
}

TEST(WindowsRunner, FileThatIsNotAProgramReturns127AndReceivesNothing) {
    // Found, but CreateProcess cannot start it.
    const std::string notAProgram = helperProgram("velcan_test_child") + ".txt";
    FILE* file = std::fopen(notAProgram.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    std::fputs("not a program", file);
    std::fclose(file);
    const NotRun r = launchExpectingNoRun(notAProgram);
    std::remove(notAProgram.c_str());
    EXPECT_EQ(r.code, 127);
    EXPECT_EQ(r.observerCalls, 0);
}

TEST(WindowsRunner, OrdinaryRunEndsWithTheBrokenPipeInErrno) {
    Collector out;
    errno = 0;
    EXPECT_EQ(LaunchBlockingProcess(child("out x").c_str(), &out), 0);
    EXPECT_EQ(errno, ERROR_BROKEN_PIPE);
    EXPECT_EQ(ERROR_BROKEN_PIPE, 109);
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

// A child started while another call's inheritable pipe copies exist would inherit them and
// hold that call's output open until it ends. The library's own spawns take turns, so short
// runs beside long ones end as soon as their own child does.
TEST(WindowsRunner, ShortRunsEndPromptlyWhileOtherThreadsRunLongChildren) {
    std::atomic<int> longStarted(0);
    std::vector<std::thread> longRuns;
    for (int t = 0; t < 3; ++t) {
        longRuns.emplace_back([&] {
            ++longStarted;
            Collector out;
            LaunchBlockingProcess(child("out started sleep 3000").c_str(), &out);
        });
    }
    while (longStarted < 3) {
        std::this_thread::yield();
    }
    double longest = 0;
    for (int i = 0; i < 30; ++i) {
        Collector out;
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(LaunchBlockingProcess(child("out short").c_str(), &out), 0);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        longest = std::max(longest, took.count());
        EXPECT_EQ(out.output, "short");
    }
    for (std::thread& thread : longRuns) {
        thread.join();
    }
    // Far below the long children's 3 seconds: none of them held a short run's pipe.
    EXPECT_LT(longest, 1.5);
}

} // namespace
