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
// runs beside long ones end while the long children still run.
TEST(WindowsRunner, ShortRunsEndWhileLongChildrenOfOtherThreadsStillRun) {
    std::mutex mutex;
    std::vector<long> longPids;
    std::atomic<int> longDone(0);
    struct PidCollector : Collector {
        std::mutex* mutex = nullptr;
        std::vector<long>* pids = nullptr;
        bool told = false;
        void onPiece() override {
            if (!told && output.find('\n') != std::string::npos) {
                told = true;
                std::lock_guard<std::mutex> lock(*mutex);
                pids->push_back(std::atol(output.c_str()));
            }
        }
    };
    std::vector<std::thread> longRuns;
    for (int t = 0; t < 3; ++t) {
        longRuns.emplace_back([&] {
            PidCollector out;
            out.mutex = &mutex;
            out.pids = &longPids;
            LaunchBlockingProcess(child("pid sleep 600000").c_str(), &out);
            ++longDone;
        });
    }
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (longPids.size() == 3) {
                break;
            }
        }
        std::this_thread::yield();
    }
    for (int i = 0; i < 30; ++i) {
        Collector out;
        EXPECT_EQ(LaunchBlockingProcess(child("out short").c_str(), &out), 0);
        EXPECT_EQ(out.output, "short");
    }
    // Had a long child held a short run open, that run would have ended only with it.
    EXPECT_EQ(longDone.load(), 0);
    for (const long pid : longPids) {
        killProcess(pid);
    }
    for (std::thread& thread : longRuns) {
        thread.join();
    }
    EXPECT_EQ(longDone.load(), 3);
}

} // namespace
