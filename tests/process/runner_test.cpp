// What the runner does with a command, its output and its exit on POSIX systems.
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "collector.h"
#include "support/temp_file.h"

namespace {

TEST(Runner, ProgramPathThatDoesNotExistReturns127WithNoSuchFile) {
    EXPECT_EQ(launchExpectingNoRun("/nonexistent/velcan/tool arg"), notRunWith(ENOENT));
}

TEST(Runner, FileWithoutExecutePermissionReturns127WithAccessDenied) {
    TempFile script("#!/bin/sh\necho ran\n");
    EXPECT_EQ(launchExpectingNoRun(script.path()), notRunWith(EACCES));
}

TEST(Runner, DirectoryAsProgramReturns127WithAccessDenied) {
    EXPECT_EQ(launchExpectingNoRun("/tmp"), notRunWith(EACCES));
}

TEST(Runner, ProgramGivenByPathRuns) {
    TempFile script("#!/bin/sh\necho \"ran $1\"\n");
    chmod(script.path(), 0700);
    EXPECT_EQ(launch((std::string(script.path()) + " well")), (Result{0, "ran well\n"}));
}

TEST(Runner, ChildEndedByASignalGives128PlusTheSignal) {
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(shell("kill -KILL $$").c_str(), &out), 128 + SIGKILL);
    EXPECT_EQ(LaunchBlockingProcess(shell("kill -TERM $$").c_str(), &out), 128 + SIGTERM);
}

TEST(Runner, NullObserverLeavesAWriterBiggerThanThePipeBlockedUntilKilled) {
    char pidFile[] = "/tmp/velcan-writer-XXXXXX";
    close(mkstemp(pidFile));
    const std::string command =
        shell(std::string("echo $$ > ") + pidFile + "; exec head -c 10000000 /dev/zero");
    std::future<int> run = std::async(
        std::launch::async, [&] { return LaunchBlockingProcess(command.c_str(), nullptr); });
    // The writer says who it is, then fills the pipe and blocks; the run cannot end before
    // it is killed, however long this waits.
    pid_t writer = 0;
    while (writer <= 0) {
        std::this_thread::yield();
        std::ifstream(pidFile) >> writer;
    }
    unlink(pidFile);
    EXPECT_EQ(run.wait_for(std::chrono::milliseconds(500)), std::future_status::timeout);
    kill(writer, SIGTERM);
    EXPECT_EQ(run.get(), 128 + SIGTERM);
}

TEST(Runner, QuotesKeepSpacesInsideAWord) {
    EXPECT_EQ(launch("printf [%%s]  \"a  b\" 'c \"d\"' e"), (Result{0, "[a  b][c \"d\"][e]"}));
}

TEST(Runner, EnvironmentIsInherited) {
    setenv("VELCAN_TEST_INHERITED", "from the caller", 1);
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(shell("echo $VELCAN_TEST_INHERITED").c_str(), &out), 0);
    unsetenv("VELCAN_TEST_INHERITED");
    EXPECT_EQ(out.output, "from the caller\n");
}

TEST(Runner, GrandchildHoldingTheOutputOpenKeepsTheReadingGoingUntilItEnds) {
    EXPECT_EQ(launch(shell("(sleep 0.3; echo late) & echo early")), (Result{0, "early\nlate\n"}));
}

TEST(Runner, ChildIsReapedByTheTimeTheCallReturns) {
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(shell("echo $$").c_str(), &out), 0);
    const pid_t child = static_cast<pid_t>(std::atoi(out.output.c_str()));
    ASSERT_GT(child, 0);
    EXPECT_EQ(waitpid(child, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

// Notes, at the first piece, whether the child is still running.
class FirstPieceWatcher : public Collector {
  public:
    bool childRunningAtFirstPiece = false;
    void onPiece() override {
        if (pieces != 1) {
            return;
        }
        std::ifstream stat("/proc/" + std::to_string(std::atoi(output.c_str())) + "/stat");
        std::string pid, name, state;
        stat >> pid >> name >> state;
        childRunningAtFirstPiece = !state.empty() && state != "Z";
    }
};

TEST(Runner, FirstPieceArrivesWhileTheChildIsStillRunning) {
    FirstPieceWatcher out;
    EXPECT_EQ(LaunchBlockingProcess(shell("echo $$; sleep 0.5; echo end").c_str(), &out), 0);
    EXPECT_TRUE(out.childRunningAtFirstPiece);
    EXPECT_EQ(out.pieces, 2);
}

void onAlarm(int) {}

TEST(Runner, InterruptedReadsAndWaitAreRetried) {
    struct sigaction action = {};
    action.sa_handler = onAlarm; // no SA_RESTART: reads and waits fail with EINTR
    ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
    struct itimerval every = {{0, 2000}, {0, 2000}};
    ASSERT_EQ(setitimer(ITIMER_REAL, &every, nullptr), 0);
    Collector out;
    const int code = LaunchBlockingProcess(
        shell("for i in 1 2 3 4 5 6 7 8 9 10; do echo $i; sleep 0.02; done; sleep 0.1; exit 5")
            .c_str(),
        &out);
    struct itimerval off = {};
    setitimer(ITIMER_REAL, &off, nullptr);
    // The do-nothing handler stays: a signal still on its way (valgrind delivers late) must
    // not end the test program.
    EXPECT_EQ(code, 5);
    EXPECT_EQ(out.output, "1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n");
}

} // namespace
