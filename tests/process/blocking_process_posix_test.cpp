// What the runner does with a command, its output and its exit on POSIX systems.
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <future>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "collector.h"
#include "support/deadline.h"
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

// What /proc says of a process: its state letter and the bytes it has written.
struct ProcessState {
    char state = '?';
    long long written = -1;
    long syscall = -2; // the system call it is blocked in; -1 when running
};

ProcessState processState(long pid) {
    ProcessState p;
    const std::string dir = "/proc/" + std::to_string(pid);
    std::ifstream stat(dir + "/stat");
    std::string id, name;
    stat >> id >> name >> p.state;
    std::ifstream io(dir + "/io");
    for (std::string key; io >> key;) {
        if (key == "wchar:") {
            io >> p.written;
        } else {
            io.ignore(64, '\n');
        }
    }
    std::ifstream(dir + "/syscall") >> p.syscall;
    return p;
}

TEST(Runner, NullObserverLeavesAWriterBiggerThanThePipeBlockedUntilKilled) {
    char pidFile[] = "/tmp/velcan-writer-XXXXXX";
    close(mkstemp(pidFile));
    const long size = 10000000;
    const std::string command = shell(std::string("echo $$ > ") + pidFile + "; exec head -c " +
                                      std::to_string(size) + " /dev/zero");
    std::future<int> run = std::async(
        std::launch::async, [&] { return LaunchBlockingProcess(command.c_str(), nullptr); });
    pid_t writer = 0;
    const bool told = waitUntil([&] {
        std::ifstream(pidFile) >> writer;
        return writer > 0;
    });
    unlink(pidFile);
    if (!told) {
        // The run cannot be ended without the writer's pid, and would keep the test waiting.
        std::fprintf(stderr, "FAIL: the writer did not write its pid within %lld s\n",
                     static_cast<long long>(kPatience.count()));
        std::_Exit(1);
    }
    // Nobody reads the pipe, so the writer fills it and then sits in write for good; had its
    // output been read, it would have written everything and ended.
    ProcessState p;
    const bool settled = waitUntil([&] {
        p = processState(writer);
        return p.state == 'Z' || p.state == '?' || (p.state == 'S' && p.syscall == SYS_write);
    });
    EXPECT_TRUE(settled) << "after " << kPatience.count() << " s the writer is in state " << p.state
                         << ", system call " << p.syscall << ", " << p.written << " bytes written";
    EXPECT_EQ(p.state, 'S') << "the writer ended: its output was read";
    EXPECT_LT(p.written, size);
    EXPECT_EQ(run.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
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

// The grandchild writes only once the child has ended (a zombie, since the runner waits for it
// only after the output's end).
TEST(Runner, GrandchildHoldingTheOutputOpenKeepsTheReadingGoingUntilItEnds) {
    // (A minute at most: a child already reaped would never be seen as a zombie.)
    EXPECT_EQ(launch(shell("(for i in $(seq 6000); do [ \"$(cut -d\" \" -f3 /proc/$$/stat)\" = Z ] "
                           "&& break; sleep 0.01; done; echo late) & echo early")),
              (Result{0, "early\nlate\n"}));
}

TEST(Runner, ChildIsReapedByTheTimeTheCallReturns) {
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(shell("echo $$").c_str(), &out), 0);
    const pid_t child = static_cast<pid_t>(std::atoi(out.output.c_str()));
    ASSERT_GT(child, 0);
    EXPECT_EQ(waitpid(child, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

// Notes, at the first piece, whether the child is still running, then lets it go on: the
// child waits for the file this creates.
class FirstPieceWatcher : public Collector {
  public:
    explicit FirstPieceWatcher(std::string release) : release_(std::move(release)) {}
    bool childRunningAtFirstPiece = false;
    void onPiece() override {
        if (pieces != 1) {
            return;
        }
        childRunningAtFirstPiece = processState(std::atol(output.c_str())).state != 'Z';
        std::ofstream(release_.c_str()) << "go";
    }

  private:
    std::string release_;
};

// Waits, in the child, until a file exists: a minute at most, so that a test that never
// makes it still ends (and fails on what the child did next).
std::string waitForFile(const std::string& path) {
    return "for i in $(seq 6000); do [ -e " + path + " ] && break; sleep 0.01; done";
}

TEST(Runner, FirstPieceArrivesWhileTheChildIsStillRunning) {
    TempFile release("");
    unlink(release.path());
    FirstPieceWatcher out(release.path());
    EXPECT_EQ(LaunchBlockingProcess(
                  shell("echo $$; " + waitForFile(release.path()) + "; echo end").c_str(), &out),
              0);
    EXPECT_TRUE(out.childRunningAtFirstPiece);
    EXPECT_EQ(out.output.substr(out.output.find('\n') + 1), "end\n");
}

std::atomic<int> alarms(0);
void onAlarm(int) {
    ++alarms;
}

// Sends SIGALRM to a thread and waits until its handler has run (a signal sent while another
// is still pending would be merged with it); false when it has not run in time.
bool interrupt(pthread_t thread) {
    const int before = alarms;
    if (pthread_kill(thread, SIGALRM) != 0) {
        return false;
    }
    return waitUntil([&] { return alarms != before; });
}

// Tells, at the first piece, which thread the runner reads on.
class ThreadNoting : public Collector {
  public:
    std::atomic<long> tid{0};
    void onPiece() override {
        if (pieces == 1) {
            tid = static_cast<long>(syscall(SYS_gettid));
        }
    }
};

// The system call a thread of this process is blocked in, or -1.
long blockedIn(long tid) {
    long call = -1;
    std::ifstream("/proc/self/task/" + std::to_string(tid) + "/syscall") >> call;
    return call;
}

// Signals arrive (SIGALRM, a handler without SA_RESTART) only while the runner's thread is
// seen blocked in a read of the output, then in the wait for the child: each is interrupted
// at least once and retried. The child waits for files that this creates after the signals.
TEST(Runner, InterruptedReadsAndWaitAreRetried) {
    struct sigaction action = {};
    action.sa_handler = onAlarm; // no SA_RESTART: reads and waits fail with EINTR
    ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
    TempFile readsDone("");
    TempFile waitDone("");
    unlink(readsDone.path());
    unlink(waitDone.path());
    alarms = 0;
    ThreadNoting out;
    std::atomic<bool> finished(false);
    int interruptedReads = 0;
    int interruptedWaits = 0;
    const pthread_t runnerThread = pthread_self();
    std::thread signaller([&] {
        while (out.tid == 0 && !finished) {
            std::this_thread::yield();
        }
        // A runner that gave up reading at the first signal is soon seen in the wait instead.
        // Two minutes without being seen blocked end the tries (and the test fails).
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::minutes(2);
        const auto tryMore = [&] { return !finished && std::chrono::steady_clock::now() < giveUp; };
        for (long call = -1; interruptedReads < 3 && call != SYS_wait4 && tryMore();
             std::this_thread::yield()) {
            call = blockedIn(out.tid);
            if (call == SYS_read && interrupt(runnerThread)) {
                ++interruptedReads;
            }
        }
        std::ofstream(readsDone.path()) << "go";
        for (; interruptedWaits < 3 && tryMore(); std::this_thread::yield()) {
            if (blockedIn(out.tid) == SYS_wait4 && interrupt(runnerThread)) {
                ++interruptedWaits;
            }
        }
        std::ofstream(waitDone.path()) << "go";
    });
    const int code = LaunchBlockingProcess(shell("echo 1; " + waitForFile(readsDone.path()) +
                                                 "; echo 2; exec >&- 2>&-; " +
                                                 waitForFile(waitDone.path()) + "; exit 5")
                                               .c_str(),
                                           &out);
    finished = true;
    signaller.join();
    // The do-nothing handler stays: a signal still on its way (valgrind delivers late) must
    // not end the test program.
    EXPECT_EQ(code, 5);
    EXPECT_EQ(out.output, "1\n2\n");
    EXPECT_EQ(interruptedReads, 3);
    EXPECT_EQ(interruptedWaits, 3);
    EXPECT_EQ(alarms.load(), 6);
}

} // namespace

namespace {

TEST(Runner, CallerThatIgnoresSigchldGets127WithNoChildProcesses) {
    // The system reaps the child as it ends and keeps no status: the wait fails, so the call
    // says 127 with ECHILD rather than a code the child never gave.
    struct sigaction before;
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGCHLD, &ignore, &before);
    errno = 0;
    const Result result = launch("sh -c 'echo ran; exit 5'");
    const int error = errno;
    sigaction(SIGCHLD, &before, nullptr);
    EXPECT_EQ(result, (Result{127, "ran\n"}));
    EXPECT_EQ(error, ECHILD);
}

} // namespace
