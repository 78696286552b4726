// The runners: spawning against fork+exec and posix_spawn, streaming, and a tree's end.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <dirent.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <velcan/velcan.h>

extern char** environ;

#include "measure.h"

namespace bench {

pid_t spawnWithPipe(const char* const argv[], int* readEnd) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return -1;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 2);
    pid_t pid = -1;
    posix_spawnp(&pid, argv[0], &actions, nullptr, const_cast<char* const*>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    *readEnd = fds[0];
    return pid;
}

double spawnTrueBaseline(int runs) {
    return seconds([&] {
               for (int i = 0; i < runs; ++i) {
                   const char* const argv[] = {"true", nullptr};
                   pid_t pid = 0;
                   posix_spawnp(&pid, "true", nullptr, nullptr, const_cast<char* const*>(argv),
                                environ);
                   waitpid(pid, nullptr, 0);
               }
           }) /
           runs;
}

// The floor for a runner that starts children the way ACE does: a bare fork, execvp and
// waitpid, with nothing else.
double forkExecTrueBaseline(int runs) {
    return seconds([&] {
               for (int i = 0; i < runs; ++i) {
                   const char* const argv[] = {"true", nullptr};
                   const pid_t pid = fork();
                   if (pid == 0) {
                       execvp(argv[0], const_cast<char* const*>(argv));
                       _exit(127);
                   }
                   waitpid(pid, nullptr, 0);
               }
           }) /
           runs;
}

// A bare fork and exec with the child's input from /dev/null and its output and error to a
// pipe: the floor for the runner's first byte.
pid_t forkExecWithPipe(const char* const argv[], int* readEnd) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        return -1;
    }
    const pid_t pid = fork();
    if (pid == 0) {
        const int input = open("/dev/null", O_RDONLY);
        dup2(input, 0);
        dup2(fds[1], 1);
        dup2(fds[1], 2);
        execvp(argv[0], const_cast<char* const*>(argv));
        _exit(127);
    }
    close(fds[1]);
    *readEnd = fds[0];
    return pid;
}

double commandTrue(int runs) {
    const char* const argv[] = {"true", nullptr};
    return seconds([&] {
               for (int i = 0; i < runs; ++i) {
                   VelcanCommand command;
                   command.SetArguments(argv);
                   command.Run();
               }
           }) /
           runs;
}

double launchTrue(int runs) {
    return seconds([&] {
               for (int i = 0; i < runs; ++i) {
                   LaunchBlockingProcess("true", nullptr);
               }
           }) /
           runs;
}

// Sets the soft open-file limit, raising the hard one first where this process may.
bool setOpenFileLimit(rlim_t n) {
    struct rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < n) {
        limit.rlim_max = n;
    }
    limit.rlim_cur = n;
    return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

class Reuse : public IBlockingProcessObserver {
  public:
    explicit Reuse(size_t size) : buffer_(size) {}
    long total = 0;
    double firstAt = 0;
    Clock::time_point start;
    void GetOutputBuffer(char** buffer, int* capacity) override {
        *buffer = buffer_.data();
        *capacity = static_cast<int>(buffer_.size());
    }
    void OutputReceived(int count) override {
        if (total == 0) {
            firstAt = std::chrono::duration<double>(Clock::now() - start).count();
        }
        total += count;
    }

  private:
    std::vector<char> buffer_;
};

void runnerMeasures(bool quick) {
    const int runs = quick ? 20 : 300;
    struct rlimit saved;
    getrlimit(RLIMIT_NOFILE, &saved);
    setOpenFileLimit(1024);
    // Single runs, alternated, and the medians compared: a noisy machine shifts both alike.
    const int alternations = quick ? 61 : 2001;
    const Pair spawn = interleaved(
        alternations, [&] { return launchTrue(1); }, [&] { return forkExecTrueBaseline(1); });
    row("LaunchBlockingProcess(\"true\") / fork+execvp", us(spawn.measure), us(spawn.baseline),
        spawn.measure / spawn.baseline, 1.10);
    const Pair posixSpawn = interleaved(
        alternations, [&] { return launchTrue(1); }, [&] { return spawnTrueBaseline(1); });
    info("same, against posix_spawnp", us(posixSpawn.measure), us(posixSpawn.baseline),
         posixSpawn.measure / posixSpawn.baseline);

    // 1048576 where this process may raise its hard limit, else as high as it may go.
    rlim_t high = 1048576;
    if (!setOpenFileLimit(high)) {
        high = saved.rlim_max;
    }
    const Pair limits = interleaved(
        alternations,
        [&] {
            setOpenFileLimit(high);
            return launchTrue(1);
        },
        [&] {
            setOpenFileLimit(1024);
            return launchTrue(1);
        });
    char limitName[64];
    std::snprintf(limitName, sizeof limitName, "same, open-file limit %lu / 1024",
                  static_cast<unsigned long>(high));
    row(limitName, us(limits.measure), us(limits.baseline), limits.measure / limits.baseline, 1.10);
    setrlimit(RLIMIT_NOFILE, &saved);

    const long bytes = quick ? (20L << 20) : (500L << 20);
    const std::string count = std::to_string(bytes);
    for (size_t size : {size_t(65536), size_t(4096)}) {
        const std::string command = "head -c " + count + " /dev/zero";
        const Pair stream = interleaved(
            quick ? 3 : 5,
            [&] {
                Reuse out(size);
                return seconds([&] { LaunchBlockingProcess(command.c_str(), &out); });
            },
            [&] {
                return seconds([&] {
                    const char* const argv[] = {"head", "-c", count.c_str(), "/dev/zero", nullptr};
                    int fd = -1;
                    const pid_t pid = spawnWithPipe(argv, &fd);
                    std::vector<char> buffer(size);
                    while (read(fd, buffer.data(), size - 1) > 0) {
                    }
                    close(fd);
                    waitpid(pid, nullptr, 0);
                });
            });
        char name[64];
        std::snprintf(name, sizeof name, "stream %ld MiB, %zu KiB buffer / read loop", bytes >> 20,
                      size / 1024);
        row(name, ms(stream.measure), ms(stream.baseline), stream.measure / stream.baseline, 1.05);
    }

    const Pair first = interleaved(
        quick ? 15 : 101,
        [&] {
            Reuse out(4096);
            out.start = Clock::now();
            LaunchBlockingProcess("sh -c 'echo ready; exec sleep 0.05'", &out);
            return out.firstAt;
        },
        [&] {
            const auto start = Clock::now();
            const char* const argv[] = {"sh", "-c", "echo ready; exec sleep 0.05", nullptr};
            int fd = -1;
            const pid_t pid = forkExecWithPipe(argv, &fd);
            char buffer[4096];
            read(fd, buffer, sizeof buffer - 1);
            const double at = std::chrono::duration<double>(Clock::now() - start).count();
            while (read(fd, buffer, sizeof buffer - 1) > 0) {
            }
            close(fd);
            waitpid(pid, nullptr, 0);
            return at;
        });
    row("first byte, runner - fork+exec+pipe (us)", us(first.measure), us(first.baseline),
        (first.measure - first.baseline) * 1e6, 50, "us");

    // The known limit: ACE starts children with fork, whose cost grows with the caller.
    std::vector<char> gib(quick ? (64u << 20) : (1u << 30), 1);
    const Pair big = interleaved(
        quick ? 3 : 5, [&] { return launchTrue(runs / 4 + 1); },
        [&] { return spawnTrueBaseline(runs / 4 + 1); });
    char name[64];
    std::snprintf(name, sizeof name, "caller holding %zu MiB: runner, posix_spawnp",
                  gib.size() >> 20);
    info(name, us(big.measure), us(big.baseline), big.measure / big.baseline);
    const Pair bigCommand = interleaved(
        quick ? 3 : 5, [&] { return commandTrue(runs / 4 + 1); },
        [&] { return spawnTrueBaseline(runs / 4 + 1); });
    std::snprintf(name, sizeof name, "same: VelcanCommand, posix_spawnp (%zu MiB)",
                  gib.size() >> 20);
    row(name, us(bigCommand.measure), us(bigCommand.baseline),
        bigCommand.measure / bigCommand.baseline, 1.5);
}

// The processes of a process group still there (not zombies), read from /proc.
int processesInGroup(long group) {
    int count = 0;
    DIR* proc = opendir("/proc");
    for (const dirent* e = proc != nullptr ? readdir(proc) : nullptr; e != nullptr;
         e = readdir(proc)) {
        char path[300];
        std::snprintf(path, sizeof path, "/proc/%s/stat", e->d_name);
        FILE* f = e->d_name[0] >= '0' && e->d_name[0] <= '9' ? std::fopen(path, "r") : nullptr;
        if (f == nullptr) {
            continue;
        }
        char line[512] = {};
        const size_t n = std::fread(line, 1, sizeof line - 1, f);
        std::fclose(f);
        const char* close = std::strrchr(line, ')');
        char state = 0;
        long parent = 0, pgrp = 0;
        if (n > 0 && close != nullptr &&
            std::sscanf(close + 2, "%c %ld %ld", &state, &parent, &pgrp) == 3 && pgrp == group &&
            state != 'Z' && state != 'X') {
            ++count;
        }
    }
    if (proc != nullptr) {
        closedir(proc);
    }
    return count;
}

// VelcanCommand: how soon an ended run returns, what waiting costs, and its cost beside
// LaunchBlockingProcess.
void commandMeasures(bool quick) {
    const int rounds = quick ? 3 : 20;
    std::vector<double> limited;
    int left = 0;
    for (int r = 0; r < rounds; ++r) {
        VelcanCommand command;
        const char* const tree[] = {"sh", "-c", "echo $$; sleep 100 & sleep 100 & exec sleep 100",
                                    nullptr};
        command.SetArguments(tree);
        command.SetTimeLimit(1);
        std::string group;
        struct Keep : IBlockingProcessObserver {
            char buffer[64];
            std::string* text;
            void GetOutputBuffer(char** b, int* c) override {
                *b = buffer;
                *c = sizeof buffer;
            }
            void OutputReceived(int n) override { text->append(buffer, static_cast<size_t>(n)); }
        } keep;
        keep.text = &group;
        command.SetOutputObserver(&keep);
        limited.push_back(seconds([&] { command.Run(); }));
        left += processesInGroup(std::atol(group.c_str()));
    }
    char value[32];
    std::snprintf(value, sizeof value, "%.3f s", median(limited));
    row("time limit 1 s, sh and 2 sleeps: return (s)", value, "1 s limit", median(limited), 1.10,
        "s");
    row("  processes of those runs left (/proc)", std::to_string(left), "0", left, 0, "");

    {
        VelcanCommand command;
        const char* const sleep[] = {"sleep", quick ? "1" : "5", nullptr};
        command.SetArguments(sleep);
        command.SetTimeLimit(quick ? 2 : 10);
        struct rusage before, after;
        getrusage(RUSAGE_THREAD, &before);
        command.Run();
        getrusage(RUSAGE_THREAD, &after);
        const double cpu = (after.ru_utime.tv_sec - before.ru_utime.tv_sec) +
                           (after.ru_stime.tv_sec - before.ru_stime.tv_sec) +
                           (after.ru_utime.tv_usec - before.ru_utime.tv_usec) * 1e-6 +
                           (after.ru_stime.tv_usec - before.ru_stime.tv_usec) * 1e-6;
        row(quick ? "waiting: CPU for sleep 1 under a 2 s limit"
                  : "waiting: CPU for sleep 5 under a 10 s limit",
            ms(cpu), "-", cpu * 1e3, 5, "ms");
    }

    std::vector<double> latencies;
    for (int r = 0; r < rounds; ++r) {
        VelcanCancel cancel;
        VelcanCommand command;
        const char* const sleep[] = {"sleep", "100", nullptr};
        command.SetArguments(sleep);
        command.SetCancel(&cancel);
        Clock::time_point cancelledAt;
        std::thread button([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            cancelledAt = Clock::now();
            cancel.Cancel();
        });
        command.Run();
        const Clock::time_point returned = Clock::now();
        button.join();
        latencies.push_back(std::chrono::duration<double>(returned - cancelledAt).count());
    }
    row("cancel from another thread: return (ms)", ms(median(latencies)), "-",
        median(latencies) * 1e3, 50, "ms");

    const int alternations = quick ? 61 : 2001;
    const Pair spawn = interleaved(
        alternations, [&] { return commandTrue(1); }, [&] { return launchTrue(1); });
    row("VelcanCommand(true) / LaunchBlockingProcess", us(spawn.measure), us(spawn.baseline),
        spawn.measure / spawn.baseline, 1.05);

    const long bytes = quick ? (20L << 20) : (500L << 20);
    const std::string count = std::to_string(bytes);
    const std::string line = "head -c " + count + " /dev/zero";
    const char* const head[] = {"head", "-c", count.c_str(), "/dev/zero", nullptr};
    const Pair stream = interleaved(
        quick ? 3 : 7,
        [&] {
            Reuse out(65536);
            VelcanCommand command;
            command.SetArguments(head);
            command.SetOutputObserver(&out);
            return seconds([&] { command.Run(); });
        },
        [&] {
            Reuse out(65536);
            return seconds([&] { LaunchBlockingProcess(line.c_str(), &out); });
        });
    char name[64];
    std::snprintf(name, sizeof name, "stream %ld MiB: VelcanCommand / Launch...", bytes >> 20);
    row(name, ms(stream.measure), ms(stream.baseline), stream.measure / stream.baseline, 1.02);
}

} // namespace bench

namespace bench {

// A command writing a lot under a 1 MiB output limit: what the caller holds, and the time,
// against the same run with no limit.
void outputLimitMeasure(bool quick) {
    const long bytes = quick ? (64L << 20) : (1L << 30);
    const std::size_t limit = 1 << 20;
    const std::string count = "count=" + std::to_string(bytes >> 16);
    const char* const writer[] = {"dd",          "if=/dev/zero", "bs=64k",
                                  count.c_str(), "status=none",  nullptr};
    // Keeps what it is handed, as an application showing the output would.
    struct Keeper : IBlockingProcessObserver {
        std::vector<char> buffer = std::vector<char>(1 << 16);
        std::string kept;
        long total = 0;
        void GetOutputBuffer(char** b, int* capacity) override {
            *b = buffer.data();
            *capacity = static_cast<int>(buffer.size());
        }
        void OutputReceived(int n) override {
            if (kept.size() < (1u << 20)) {
                kept.append(buffer.data(), static_cast<std::size_t>(n));
            }
            total += n;
        }
    };
    long handed = 0;
    bool cut = false;
    double growth = 0;
    const Pair t = interleaved(
        quick ? 3 : 5,
        [&] {
            const long before = liveBytes;
            peakBytes = before;
            VelcanCommand command;
            command.SetArguments(writer);
            command.SetOutputLimit(limit);
            Keeper keeper;
            keeper.kept.reserve(limit);
            command.SetOutputObserver(&keeper);
            VelcanRunDetails details{};
            details.size = sizeof details;
            const double s = seconds([&] { command.Run(&details); });
            growth = static_cast<double>(peakBytes - before);
            handed = keeper.total;
            cut = details.outputCut;
            return s;
        },
        [&] {
            VelcanCommand command;
            command.SetArguments(writer);
            Keeper keeper;
            command.SetOutputObserver(&keeper);
            return seconds([&] { command.Run(); });
        });
    char name[64];
    std::snprintf(name, sizeof name, "%ld MiB under a 1 MiB limit / no limit", bytes >> 20);
    row(name, ms(t.measure), ms(t.baseline), t.measure / t.baseline, 1.05);
    // The limit, the observer's buffer and the library's own read buffer, each 64 KiB.
    const double allowed = static_cast<double>(limit + 2 * (1 << 16));
    row("peak heap under the limit / limit + 2 buffers", mib(growth), mib(allowed),
        growth / allowed, 1.05);
    if (handed != static_cast<long>(limit) || !cut) {
        wrongResult("the limit handed " + std::to_string(handed) +
                    " bytes, cut: " + (cut ? "yes" : "no"));
    }
}

} // namespace bench
