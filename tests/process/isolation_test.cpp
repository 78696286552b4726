// What a child inherits of its caller, and calls on several threads at once.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <set>
#include <spawn.h>
#include <thread>
#include <vector>

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

// The descriptors another process has open, as numbers.
std::set<int> descriptorsOf(pid_t pid) {
    std::set<int> fds;
    const std::string dir = "/proc/" + std::to_string(pid) + "/fd";
    if (DIR* d = opendir(dir.c_str())) {
        for (const dirent* entry = readdir(d); entry != nullptr; entry = readdir(d)) {
            if (entry->d_name[0] != '.') {
                fds.insert(std::atoi(entry->d_name));
            }
        }
        closedir(d);
    }
    return fds;
}

// What a descriptor of another process refers to ("pipe:[1234]", "/dev/null"), or "" when
// it is gone.
std::string linkOf(pid_t pid, int fd) {
    char target[256];
    const std::string path = "/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd);
    const ssize_t n = readlink(path.c_str(), target, sizeof target);
    return n > 0 ? std::string(target, static_cast<size_t>(n)) : std::string();
}

// The descriptors of this process that a child it starts would inherit.
std::set<int> inheritableDescriptors() {
    std::set<int> fds;
    for (const int fd : descriptorsOf(getpid())) {
        const int flags = fcntl(fd, F_GETFD);
        if (flags != -1 && (flags & FD_CLOEXEC) == 0) {
            fds.insert(fd);
        }
    }
    return fds;
}

TEST(Isolation, ChildrenSpawnedByOtherCodeHoldNoDescriptorOfARun) {
    // Three threads start children with posix_spawn back to back, as other code in an
    // application may, while this thread runs short commands. A child that holds anything
    // beyond what this process had inheritable from the start holds a run's descriptor (and
    // would keep that run's pipe open for as long as it lives).
    const std::set<int> allowed = inheritableDescriptors();
    std::atomic<bool> stop(false);
    std::atomic<int> inspected(0);
    std::atomic<int> holding(0);
    std::vector<std::thread> others;
    for (int i = 0; i < 3; ++i) {
        others.emplace_back([&] {
            while (!stop) {
                char sleepArg[] = "sleep";
                char seconds[] = "30";
                char* argv[] = {sleepArg, seconds, nullptr};
                pid_t pid = 0;
                if (posix_spawnp(&pid, "sleep", nullptr, nullptr, argv, environ) != 0) {
                    continue;
                }
                // posix_spawn returns once the child has run exec: a pipe or null device
                // it holds now came from this process. (The program's own start-up may open
                // and close files of its own meanwhile; those are neither.)
                for (const int fd : descriptorsOf(pid)) {
                    const std::string target = linkOf(pid, fd);
                    const bool runs = target.compare(0, 5, "pipe:") == 0 || target == "/dev/null";
                    if (runs && allowed.count(fd) == 0) {
                        ++holding;
                    }
                }
                ++inspected;
                kill(pid, SIGKILL);
                waitpid(pid, nullptr, 0);
            }
        });
    }
    for (int i = 0; i < 300; ++i) {
        Collector out(64);
        EXPECT_EQ(LaunchBlockingProcess("echo short", &out), 0);
        EXPECT_EQ(out.output, "short\n");
    }
    stop = true;
    for (std::thread& t : others) {
        t.join();
    }
    EXPECT_GT(inspected.load(), 0);
    EXPECT_EQ(holding.load(), 0);
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
        Collector out(64);
        EXPECT_EQ(LaunchBlockingProcess(shortChild.c_str(), &out), 0);
        EXPECT_EQ(out.output, "0 1 2\n");
    }
    stop = true;
    for (std::thread& t : others) {
        t.join();
    }
    EXPECT_GT(longRuns.load(), 0);
    EXPECT_EQ(wrong.load(), 0);
}

TEST(Isolation, ShortRunsEndWhileLongChildrenOfOtherThreadsStillRun) {
    // Three threads each run a child that lives until this test ends it. Every short run
    // here must come back while those children still live: a short run held open by one of
    // them would only come back once it had ended.
    std::atomic<int> longDone(0);
    std::mutex mutex;
    std::vector<pid_t> longPids;
    struct PidCollector : Collector {
        std::mutex* mutex = nullptr;
        std::vector<pid_t>* pids = nullptr;
        void onPiece() override {
            if (output.find('\n') != std::string::npos && pid == 0) {
                pid = std::atoi(output.c_str());
                std::lock_guard<std::mutex> lock(*mutex);
                pids->push_back(pid);
            }
        }
        pid_t pid = 0;
    };
    std::vector<std::thread> others;
    for (int i = 0; i < 3; ++i) {
        others.emplace_back([&] {
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
    for (int i = 0; i < 100; ++i) {
        Collector out(64);
        EXPECT_EQ(LaunchBlockingProcess("echo short", &out), 0);
    }
    EXPECT_EQ(longDone.load(), 0);
    for (const pid_t pid : longPids) {
        killProcess(pid);
    }
    for (std::thread& t : others) {
        t.join();
    }
    EXPECT_EQ(longDone.load(), 3);
}

} // namespace
