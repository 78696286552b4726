// What a child inherits of its caller, and calls on several threads at once.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <spawn.h>
#include <thread>

#include <gtest/gtest.h>

#include "collector.h"
#include "support/open_files.h"

extern char** environ;

namespace {

// ls lists its own descriptors: the three it was given and the one it reads the list with.
const std::string kListDescriptors = "ls /proc/self/fd";
const std::string kOnlyStandardDescriptors = "0\n1\n2\n3\n";

TEST(Isolation, ChildGetsOnlyDescriptorsZeroOneAndTwo) {
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(kListDescriptors.c_str(), &out), 0);
    EXPECT_EQ(out.output, kOnlyStandardDescriptors);
}

TEST(Isolation, InheritableDescriptorsOfTheCallerDoNotReachTheChild) {
    const int plain = open("/dev/null", O_RDONLY); // no close-on-exec
    ASSERT_GE(plain, 0);
    const int high = dup2(plain, 900);
    ASSERT_EQ(high, 900);
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(kListDescriptors.c_str(), &out), 0);
    close(plain);
    close(high);
    EXPECT_EQ(out.output, kOnlyStandardDescriptors);
}

TEST(Isolation, DescriptorsAboveALargeOpenFileLimitDoNotReachTheChild) {
    struct rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const struct rlimit saved = limit;
    // As high as this process may go: 1048576 where it may raise its hard limit.
    limit.rlim_cur = limit.rlim_max = 1048576;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
        limit.rlim_cur = limit.rlim_max = saved.rlim_max;
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    }
    const int wanted = static_cast<int>(limit.rlim_cur) - 1;
    const int far = fcntl(0, F_DUPFD, wanted);
    ASSERT_EQ(far, wanted);
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(kListDescriptors.c_str(), &out), 0);
    close(far);
    setrlimit(RLIMIT_NOFILE, &saved);
    EXPECT_EQ(out.output, kOnlyStandardDescriptors);
}

TEST(Isolation, NoDescriptorLeaksOver1000Runs) {
    const int before = openDescriptorCount();
    for (int i = 0; i < 1000; ++i) {
        Collector out(64);
        ASSERT_EQ(LaunchBlockingProcess("true", &out), 0);
    }
    ASSERT_EQ(LaunchBlockingProcess("velcan-no-such-program", nullptr), 127);
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST(Isolation, CallerWithStandardDescriptorsClosedStillGetsACorrectRun) {
    const pid_t helper = fork();
    ASSERT_GE(helper, 0);
    if (helper == 0) {
        close(0);
        close(1);
        close(2);
        Collector out;
        const int code = LaunchBlockingProcess(
            shell("echo out; echo err >&2; cat; ls /proc/self/fd; exit 4").c_str(), &out);
        const bool stillClosed =
            fcntl(0, F_GETFD) == -1 && fcntl(1, F_GETFD) == -1 && fcntl(2, F_GETFD) == -1;
        _exit(code == 4 && out.output == "out\nerr\n" + kOnlyStandardDescriptors && stillClosed
                  ? 0
                  : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(helper, &status, 0), helper);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST(Isolation, CallerWithOnlyStandardErrorClosedStillGetsACorrectRun) {
    const pid_t helper = fork();
    ASSERT_GE(helper, 0);
    if (helper == 0) {
        close(2);
        Collector out;
        const int code = LaunchBlockingProcess(shell("echo err >&2; exit 6").c_str(), &out);
        _exit(code == 6 && out.output == "err\n" ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(helper, &status, 0), helper);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST(Isolation, EightThreadsEachGetTheirOwnOutputAndCode) {
    const int kThreads = 8;
    const int kRuns = 50;
    std::atomic<int> wrong(0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &wrong] {
            for (int r = 0; r < kRuns; ++r) {
                const std::string tag = std::to_string(t) + "-" + std::to_string(r);
                Collector out(128);
                const int code = LaunchBlockingProcess(
                    shell("echo " + tag + "; exit " + std::to_string((t * kRuns + r) % 100))
                        .c_str(),
                    &out);
                if (code != (t * kRuns + r) % 100 || out.output != tag + "\n") {
                    ++wrong;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);
}

// Runs short commands while other threads keep long ones going; returns the slowest run.
template <typename LongRunner> double slowestShortRun(int shortRuns, LongRunner longRunner) {
    std::atomic<bool> stop(false);
    std::vector<std::thread> others;
    for (int i = 0; i < 3; ++i) {
        others.emplace_back([&] {
            while (!stop) {
                longRunner();
            }
        });
    }
    double slowest = 0;
    for (int i = 0; i < shortRuns; ++i) {
        Collector out(64);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(LaunchBlockingProcess("echo short", &out), 0);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        slowest = std::max(slowest, took.count());
    }
    stop = true;
    for (std::thread& t : others) {
        t.join();
    }
    return slowest;
}

TEST(Isolation, LongChildrenOnOtherThreadsDoNotHoldShortRunsOpen) {
    const double slowest = slowestShortRun(200, [] { LaunchBlockingProcess("sleep 1", nullptr); });
    EXPECT_LT(slowest, 0.3);
}

TEST(Isolation, ChildrenSpawnedByOtherCodeDoNotHoldRunsOpen) {
    const double slowest = slowestShortRun(100, [] {
        char sleepArg[] = "sleep";
        char second[] = "1";
        char* argv[] = {sleepArg, second, nullptr};
        pid_t pid = 0;
        if (posix_spawnp(&pid, "sleep", nullptr, nullptr, argv, environ) == 0) {
            waitpid(pid, nullptr, 0);
        }
    });
    EXPECT_LT(slowest, 0.3);
}

} // namespace
