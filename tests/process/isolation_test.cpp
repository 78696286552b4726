// What a child inherits of its caller, and calls on several threads at once.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <set>
#include <spawn.h>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "collector.h"
#include "support/deadline.h"
#include "support/forked.h"
#include "support/open_files.h"

extern char** environ;

namespace {

// ls lists its own descriptors: the three it was given and the one it reads the list with.
const std::string kListDescriptors = "ls /proc/self/fd";
const std::string kOnlyStandardDescriptors = "0\n1\n2\n3\n";

TEST(Isolation, ChildGetsOnlyDescriptorsZeroOneAndTwo) {
    EXPECT_EQ(launch(kListDescriptors), (Result{0, kOnlyStandardDescriptors}));
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

// What a run gave, as one text to compare: "code C, output 'O'".
std::string described(int code, const std::string& output) {
    return "code " + std::to_string(code) + ", output '" + output + "'";
}

TEST(Isolation, CallerWithStandardDescriptorsClosedStillGetsACorrectRun) {
    const std::string report = inForkedChild([] {
        close(0);
        close(1);
        close(2);
        Collector out;
        const int code = LaunchBlockingProcess(
            shell("echo out; echo err >&2; cat; ls /proc/self/fd; exit 4").c_str(), &out);
        const bool stillClosed =
            fcntl(0, F_GETFD) == -1 && fcntl(1, F_GETFD) == -1 && fcntl(2, F_GETFD) == -1;
        return described(code, out.output) + (stillClosed ? "" : ", 0-2 no longer closed");
    });
    EXPECT_EQ(report, described(4, "out\nerr\n" + kOnlyStandardDescriptors));
}

TEST(Isolation, CallerWithOnlyStandardErrorClosedStillGetsACorrectRun) {
    const std::string report = inForkedChild([] {
        close(2);
        Collector out;
        const int code = LaunchBlockingProcess(shell("echo err >&2; exit 6").c_str(), &out);
        return described(code, out.output);
    });
    EXPECT_EQ(report, described(6, "err\n"));
}

// Unread input of the caller's own stays where it is: the child's input is the null device.
TEST(Isolation, ChildNeverReadsTheCallersStandardInput) {
    int input[2];
    ASSERT_EQ(pipe(input), 0);
    ASSERT_EQ(write(input[1], "caller's input\n", 15), 15);
    close(input[1]);
    const int saved = dup(0);
    ASSERT_GE(saved, 0);
    ASSERT_EQ(dup2(input[0], 0), 0);
    close(input[0]);
    const Result run = launch(child("stdin out done"));
    char left[64] = {0};
    const ssize_t unread = read(0, left, sizeof left);
    dup2(saved, 0);
    close(saved);
    EXPECT_EQ(run, (Result{0, "stdin: 0 bytes\ndone"}));
    EXPECT_EQ(std::string(left, unread > 0 ? static_cast<std::size_t>(unread) : 0),
              "caller's input\n");
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

TEST(Isolation, ChildrenOfRunsOnOtherThreadsHoldNoDescriptorOfAnother) {
    // Long children on three threads say what they hold as they start; short runs here do
    // the same. Each must hold 0, 1 and 2 alone: anything more is another run's pipe or null
    // device, which would hold that run open until the holder ends.
    std::atomic<bool> stop(false);
    std::atomic<int> longRuns(0);
    std::atomic<int> wrong(0);
    std::vector<std::thread> others;
    const std::string longChild = child("fds sleep 200");
    for (int i = 0; i < 3; ++i) {
        others.emplace_back([&] {
            while (!stop) {
                Collector out(64);
                if (LaunchBlockingProcess(longChild.c_str(), &out) != 0 ||
                    out.output != "0 1 2\n") {
                    ++wrong;
                }
                ++longRuns;
            }
        });
    }
    const std::string shortChild = child("fds");
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(launch(shortChild, 64), (Result{0, "0 1 2\n"}));
    }
    stop = true;
    for (std::thread& t : others) {
        t.join();
    }
    EXPECT_GT(longRuns.load(), 0);
    EXPECT_EQ(wrong.load(), 0);
}

} // namespace
