// Load on the runner: many sequential runs, many threads, short runs beside long ones, and
// short runs while other code spawns children back to back.
// Checks every output and exit code, and that descriptors, child processes and resident
// memory are as flat at the end as at the start.
//   velcan_stress [SEQUENTIAL_RUNS] [THREADS] [RUNS_PER_THREAD]
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "process/collector.h"
#include "support/other_spawns.h"

namespace {

int countEntries(const char* path) {
    DIR* dir = opendir(path);
    int n = 0;
    while (dir != nullptr && readdir(dir) != nullptr) {
        ++n;
    }
    if (dir != nullptr) {
        closedir(dir);
    }
    return n;
}

// Processes whose parent is this one, zombies included.
int childProcesses() {
    int n = 0;
    DIR* proc = opendir("/proc");
    const std::string self = std::to_string(getpid());
    while (dirent* entry = readdir(proc)) {
        std::ifstream stat(std::string("/proc/") + entry->d_name + "/stat");
        std::string pid, name, state, ppid;
        if (stat >> pid >> name >> state >> ppid && ppid == self) {
            ++n;
        }
    }
    closedir(proc);
    return n;
}

long residentKiB() {
    std::ifstream status("/proc/self/status");
    std::string key;
    long value = 0;
    while (status >> key) {
        if (key == "VmRSS:") {
            status >> value;
            return value;
        }
        status.ignore(1 << 20, '\n');
    }
    return -1;
}

std::atomic<int> failures(0);

void runOne(const std::string& tag, int code) {
    Collector out(256);
    const std::string command = "sh -c 'echo " + tag + "; exit " + std::to_string(code) + "'";
    if (LaunchBlockingProcess(command.c_str(), &out) != code || out.output != tag + "\n") {
        if (failures++ < 5) {
            std::fprintf(stderr, "stress: wrong result for %s\n", tag.c_str());
        }
    }
}

struct Snapshot {
    int descriptors;
    int children;
    long rss;
};

// Runs short commands, checking each; returns the longest one took, in seconds.
double longestShortRun(int runs) {
    double longest = 0;
    for (int i = 0; i < runs; ++i) {
        const auto start = std::chrono::steady_clock::now();
        runOne("short", 0);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        longest = std::max(longest, took.count());
    }
    return longest;
}

Snapshot snapshot() {
    return {countEntries("/proc/self/fd"), childProcesses(), residentKiB()};
}

// A sanitizer holds freed memory back for a while, so resident memory says nothing there.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const bool kJudgeMemory = false;
#else
const bool kJudgeMemory = true;
#endif

bool flat(const char* phase, const Snapshot& before, const Snapshot& after) {
    std::printf("  %-12s descriptors %d -> %d, child processes %d -> %d, resident %ld -> %ld KiB\n",
                phase, before.descriptors, after.descriptors, before.children, after.children,
                before.rss, after.rss);
    return after.descriptors == before.descriptors && after.children == 0 &&
           (!kJudgeMemory || after.rss < before.rss + 4096);
}

} // namespace

int main(int argc, char** argv) {
    const int sequential = argc > 1 ? std::atoi(argv[1]) : 10000;
    const int threads = argc > 2 ? std::atoi(argv[2]) : 16;
    const int perThread = argc > 3 ? std::atoi(argv[3]) : 300;
    bool ok = true;

    // Warm up the allocator and the library before the first snapshot.
    for (int i = 0; i < 20; ++i) {
        runOne("warm", 0);
    }

    std::printf("%d sequential runs\n", sequential);
    Snapshot start = snapshot();
    const auto t0 = std::chrono::steady_clock::now();
    for (int i = 0; i < sequential; ++i) {
        runOne("s" + std::to_string(i), i % 256);
    }
    const std::chrono::duration<double> t1 = std::chrono::steady_clock::now() - t0;
    std::printf("  %.1f s, %.0f runs/s\n", t1.count(), sequential / t1.count());
    ok = flat("sequential", start, snapshot()) && ok;

    std::printf("%d threads x %d runs\n", threads, perThread);
    start = snapshot();
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) {
        pool.emplace_back([t, perThread] {
            for (int r = 0; r < perThread; ++r) {
                runOne("t" + std::to_string(t) + "r" + std::to_string(r), (t + r) % 256);
            }
        });
    }
    for (std::thread& th : pool) {
        th.join();
    }
    ok = flat("threads", start, snapshot()) && ok;

    std::printf("%d short runs while 3 threads run 1-second children\n", perThread);
    {
        std::atomic<bool> stop(false);
        std::vector<std::thread> longRunners;
        for (int i = 0; i < 3; ++i) {
            longRunners.emplace_back([&stop] {
                while (!stop) {
                    LaunchBlockingProcess("sleep 1", nullptr);
                }
            });
        }
        const double longest = longestShortRun(perThread);
        stop = true;
        for (std::thread& th : longRunners) {
            th.join();
        }
        // For information only: a loaded machine can make any run slow.
        std::printf("  longest short run %.3f s\n", longest);
    }

    std::printf("%d short runs while 3 threads posix_spawn children back to back\n", sequential);
    {
        // A run's pipe or null device found in another program's child is a run that child
        // holds open until it ends.
        OtherSpawns others;
        const double longest = longestShortRun(sequential);
        others.stop();
        std::printf("  %ld children spawned beside them; run descriptors they held: %ld\n",
                    others.spawned(), others.held());
        std::printf("  longest short run %.3f s (for information)\n", longest);
        ok = ok && others.held() == 0;
    }

    std::printf("wrong outputs or exit codes: %d\n", failures.load());
    ok = ok && failures == 0;
    std::printf("stress: %s\n", ok ? "ok" : "FAILED");
    return ok ? 0 : 1;
}
