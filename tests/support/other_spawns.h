// Other code in an application starting children while the runner works: threads that start
// `sleep` with posix_spawn back to back and look at what each child holds. POSIX only.
#ifndef VELCAN_TESTS_OTHER_SPAWNS_H
#define VELCAN_TESTS_OTHER_SPAWNS_H

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "support/open_files.h"

extern char** environ;

class OtherSpawns {
  public:
    // Starts the threads. What this process lets every child inherit now is what a child
    // of theirs may hold; a run's pipe or null device beyond that is counted.
    explicit OtherSpawns(int threads = 3) : allowed_(inheritableDescriptors()) {
        for (int i = 0; i < threads; ++i) {
            threads_.emplace_back([this] { spawnUntilStopped(); });
        }
    }
    ~OtherSpawns() { stop(); }
    OtherSpawns(const OtherSpawns&) = delete;
    OtherSpawns& operator=(const OtherSpawns&) = delete;

    // Stops the threads and waits for them.
    void stop() {
        stop_ = true;
        for (std::thread& t : threads_) {
            if (t.joinable()) {
                t.join();
            }
        }
    }

    long spawned() const { return spawned_; }
    // Mark where the caller's runs start and end, to count the spawns made wholly inside one.
    void runStarts() { ++runs_; }
    void runEnds() { ++runs_; }
    // The spawns that started and returned inside one run: the overlaps the tests are for.
    long spawnedDuringRuns() const { return during_; }
    // The runs' descriptors found in the children: each is a run a child held open.
    long held() const { return held_; }

  private:
    void spawnUntilStopped() {
        char name[] = "sleep";
        char seconds[] = "30";
        char* argv[] = {name, seconds, nullptr};
        while (!stop_) {
            pid_t pid = 0;
            const long runBefore = runs_;
            if (posix_spawnp(&pid, "sleep", nullptr, nullptr, argv, environ) != 0) {
                continue;
            }
            if (runBefore % 2 == 1 && runs_ == runBefore) {
                ++during_;
            }
            // posix_spawn returns once the child has run exec: what it holds now came from
            // this process. (The program's own start-up may open and close files of its own
            // meanwhile; those are neither pipes nor the null device.)
            held_ += runDescriptorsHeldBy(pid, allowed_);
            ++spawned_;
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }

    const std::set<int> allowed_;
    std::atomic<bool> stop_{false};
    std::atomic<long> spawned_{0};
    std::atomic<long> held_{0};
    std::atomic<long> runs_{0}; // odd while a run is under way
    std::atomic<long> during_{0};
    std::vector<std::thread> threads_;
};

#endif
