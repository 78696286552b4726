// velcan's measures, each beside its physical floor measured in the same run. Pairs run in
// interleaved rounds; the ratio is of the medians. Prints one table.
//   velcan_bench [--quick]
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <functional>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <expat.h>
#include <velcan/velcan.h>

#include "commands.h"
#include "events_baseline.h"
#include "generate_history.h"

extern char** environ;

// Heap accounting for the memory measure: live and peak bytes through operator new.
namespace {
std::atomic<long> liveBytes(0);
std::atomic<long> peakBytes(0);
} // namespace

void* operator new(std::size_t size) {
    void* p = std::malloc(size + 16);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    *static_cast<std::size_t*>(p) = size;
    const long live = liveBytes += static_cast<long>(size);
    long peak = peakBytes;
    while (live > peak && !peakBytes.compare_exchange_weak(peak, live)) {
    }
    return static_cast<char*>(p) + 16;
}
void operator delete(void* p) noexcept {
    if (p != nullptr) {
        char* base = static_cast<char*>(p) - 16;
        liveBytes -= static_cast<long>(*reinterpret_cast<std::size_t*>(base));
        std::free(base);
    }
}
void operator delete(void* p, std::size_t) noexcept {
    operator delete(p);
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void operator delete[](void* p) noexcept {
    operator delete(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    operator delete(p);
}

namespace {

using Clock = std::chrono::steady_clock;

double seconds(const std::function<void()>& f) {
    const auto start = Clock::now();
    f();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

struct Pair {
    double measure;
    double baseline;
};

// Interleaved rounds of a measure and its baseline; the medians of each.
Pair interleaved(int rounds, const std::function<double()>& measure,
                 const std::function<double()>& baseline) {
    std::vector<double> m, b;
    for (int r = 0; r < rounds; ++r) {
        if (r % 2 == 0) {
            b.push_back(baseline());
            m.push_back(measure());
        } else {
            m.push_back(measure());
            b.push_back(baseline());
        }
    }
    return {median(m), median(b)};
}

int failures = 0;

void row(const char* name, const std::string& measure, const std::string& baseline, double ratio,
         double target, const char* unit = "x") {
    const bool pass = ratio <= target;
    failures += pass ? 0 : 1;
    std::printf("| %-44s | %-14s | %-14s | %7.3f%s | <= %.2f%s | %-4s |\n", name, measure.c_str(),
                baseline.c_str(), ratio, unit, target, unit, pass ? "pass" : "FAIL");
}

// A row with no target: a known cost, shown for what it is.
void info(const char* name, const std::string& measure, const std::string& baseline, double ratio) {
    std::printf("| %-44s | %-14s | %-14s | %7.3fx | %9s | %-4s |\n", name, measure.c_str(),
                baseline.c_str(), ratio, "", "info");
}

std::string ms(double s) {
    char b[32];
    std::snprintf(b, sizeof b, "%.2f ms", s * 1e3);
    return b;
}
std::string ns(double s) {
    char b[32];
    std::snprintf(b, sizeof b, "%.1f ns", s * 1e9);
    return b;
}
std::string us(double s) {
    char b[32];
    std::snprintf(b, sizeof b, "%.1f us", s * 1e6);
    return b;
}
std::string mib(double bytes) {
    char b[32];
    std::snprintf(b, sizeof b, "%.1f MiB", bytes / (1 << 20));
    return b;
}

// --- the version history ---------------------------------------------------------------

double expatAlone(const std::string& path) {
    return seconds([&] {
        FILE* f = std::fopen(path.c_str(), "r");
        XML_Parser p = XML_ParserCreate(nullptr);
        char buffer[1024];
        for (;;) {
            const size_t n = std::fread(buffer, 1, sizeof buffer, f);
            if (XML_Parse(p, buffer, static_cast<int>(n), n < sizeof buffer) == 0 ||
                n < sizeof buffer) {
                break;
            }
        }
        XML_ParserFree(p);
        std::fclose(f);
    });
}

size_t heapBytes(const std::string& s) {
    return s.capacity() > 15 ? s.capacity() + 1 : 0;
}

size_t ownedBytes(const TUpdateVersionInfo& info) {
    size_t total = info.versions.capacity() * sizeof(TUpdateVersion) + heapBytes(info.extraText);
    for (const TUpdateVersion& v : info.versions) {
        total += heapBytes(v.number) + heapBytes(v.date) +
                 v.featureDescriptions.capacity() * sizeof(std::string);
        for (const std::string& d : v.featureDescriptions) {
            total += heapBytes(d);
        }
    }
    return total;
}

void historyMeasures(bool quick) {
    const std::string path = "/tmp/velcan-bench-history.xml";
    const long versions = generateHistory(path, quick ? (2L << 20) : (50L << 20));
    size_t versionsRead = 0;
    const Pair t = interleaved(
        quick ? 3 : 7,
        [&] {
            return seconds(
                [&] { versionsRead = VelcanParseUpdateFile(path.c_str()).versions.size(); });
        },
        [&] { return expatAlone(path); });
    char name[64];
    std::snprintf(name, sizeof name, "VelcanParseUpdateFile, %ld versions", versions);
    row(name, ms(t.measure), ms(t.baseline), t.measure / t.baseline, 1.10);
    if (static_cast<long>(versionsRead) != versions) {
        std::printf("  read %zu versions of %ld\n", versionsRead, versions);
        ++failures;
    }

    const long before = liveBytes;
    peakBytes = before;
    const TUpdateVersionInfo info = VelcanParseUpdateFile(path.c_str());
    const double growth = static_cast<double>(peakBytes - before);
    const double owned = static_cast<double>(ownedBytes(info));
    row("peak heap growth / bytes the record owns", mib(growth), mib(owned), growth / owned, 1.20);
    std::remove(path.c_str());
}

// --- expatpp dispatch -------------------------------------------------------------------

struct Work {
    unsigned long sum = 0;
    void name(const char* s) {
        for (; *s != '\0'; ++s) {
            sum += static_cast<unsigned char>(*s);
        }
    }
    void text(const char* s, int len) {
        for (int i = 0; i < len; ++i) {
            sum += static_cast<unsigned char>(s[i]);
        }
    }
};

class WorkReader : public expatpp {
  public:
    Work work;
    void startElement(const char* name, const char**) override { work.name(name); }
    void endElement(const char* name) override { work.name(name); }
    void charData(const char* s, int len) override { work.text(s, len); }
};

void XMLCALL cStart(void* w, const char* name, const char**) {
    static_cast<Work*>(w)->name(name);
}
void XMLCALL cEnd(void* w, const char* name) {
    static_cast<Work*>(w)->name(name);
}
void XMLCALL cText(void* w, const char* s, int len) {
    static_cast<Work*>(w)->text(s, len);
}

// Runs one of the tool's commands (or anything else that prints), with stdout sent to path.
double printingTo(const std::string& out, const std::function<void()>& command) {
    std::fflush(stdout);
    const int saved = dup(1);
    const int sink = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(sink, 1);
    close(sink);
    const double t = seconds(command);
    std::fflush(stdout);
    dup2(saved, 1);
    close(saved);
    return t;
}

// The tool's events command, or the plain expat program.
double eventsTo(const std::string& out, const std::string& doc, bool tool) {
    return printingTo(out, [&] {
        if (tool) {
            eventsCommand({doc.c_str()});
        } else {
            baseline::printEvents(doc.c_str());
        }
    });
}

void eventsMeasure(bool quick) {
    const std::string doc = "/tmp/velcan-bench-events.xml";
    generateHistory(doc, quick ? (1L << 20) : (10L << 20));
    // The same lines from both, or the comparison means nothing.
    eventsTo("/tmp/velcan-bench-events.tool", doc, true);
    eventsTo("/tmp/velcan-bench-events.plain", doc, false);
    const bool same = std::system("cmp -s /tmp/velcan-bench-events.tool "
                                  "/tmp/velcan-bench-events.plain") == 0;
    std::remove("/tmp/velcan-bench-events.tool");
    std::remove("/tmp/velcan-bench-events.plain");
    const Pair t = interleaved(
        quick ? 3 : 9, [&] { return eventsTo("/dev/null", doc, true); },
        [&] { return eventsTo("/dev/null", doc, false); });
    std::remove(doc.c_str());
    row(same ? "velcan events, 10 MB / plain expat, unlocked stdio"
             : "velcan events: OUTPUT DIFFERS from plain expat",
        ms(t.measure), ms(t.baseline), same ? t.measure / t.baseline : 99.0, 1.10);
}

// lint against history on one document nested deep: each event must cost lint the same at
// any depth, as it costs the reader.
void lintDepthMeasure(bool quick) {
    const std::string doc = "/tmp/velcan-bench-deep.xml";
    const int depth = quick ? 20000 : 200000;
    {
        std::string text;
        for (int i = 0; i < depth; ++i) {
            text += "<a>";
        }
        text += "<Version number=\"1.0\" date=\"2026-11-24\"><FeatureDescription>deep"
                "</FeatureDescription></Version>";
        for (int i = 0; i < depth; ++i) {
            text += "</a>";
        }
        FILE* f = std::fopen(doc.c_str(), "wb");
        std::fwrite(text.data(), 1, text.size(), f);
        std::fclose(f);
    }
    int lintStatus = -1;
    int historyStatus = -1;
    const Pair t = interleaved(
        quick ? 3 : 5,
        [&] { return printingTo("/dev/null", [&] { lintStatus = lintCommand({doc.c_str()}); }); },
        [&] {
            return printingTo("/dev/null", [&] { historyStatus = historyCommand({doc.c_str()}); });
        });
    std::remove(doc.c_str());
    char name[64];
    std::snprintf(name, sizeof name, "velcan lint / velcan history, %d deep", depth);
    const bool ran = lintStatus == 0 && historyStatus == 0;
    row(ran ? name : "velcan lint or history FAILED on the deep document", ms(t.measure),
        ms(t.baseline), ran ? t.measure / t.baseline : 99.0, 3.0);
}

// velcan history --since and --format=html against plain history on one large file: the
// same time and the same peak heap, since both write a version at a time and copy nothing.
void historyFormatsMeasure(bool quick) {
    const std::string path = "/tmp/velcan-bench-formats.xml";
    const long versions = generateHistory(path, quick ? (2L << 20) : (200L << 20));
    const Arguments plain = {path.c_str()};
    const Arguments since = {"--since=0", path.c_str()}; // every version is newer: all shown
    const Arguments html = {"--format=html", path.c_str()};
    int status = 0;
    auto run = [&](const Arguments& args) {
        return printingTo("/dev/null", [&] { status |= historyCommand(args); });
    };
    auto peakOf = [&](const Arguments& args) {
        const long before = liveBytes;
        peakBytes = before;
        run(args);
        return static_cast<double>(peakBytes - before);
    };
    const int rounds = quick ? 3 : 5;
    const Pair s = interleaved(
        rounds, [&] { return run(since); }, [&] { return run(plain); });
    const Pair h = interleaved(
        rounds, [&] { return run(html); }, [&] { return run(plain); });
    const double plainPeak = peakOf(plain);
    const double sincePeak = peakOf(since);
    const double htmlPeak = peakOf(html);
    std::remove(path.c_str());
    char name[64];
    const char* failed = "velcan history FAILED on the large file";
    std::snprintf(name, sizeof name, "history --since / history, %ld versions", versions);
    row(status == 0 ? name : failed, ms(s.measure), ms(s.baseline), s.measure / s.baseline, 1.10);
    std::snprintf(name, sizeof name, "history --format=html / history, %ld versions", versions);
    row(status == 0 ? name : failed, ms(h.measure), ms(h.baseline), h.measure / h.baseline, 1.10);
    row("peak heap: history --since / history", mib(sincePeak), mib(plainPeak),
        sincePeak / plainPeak, 1.05);
    row("peak heap: history --format=html / history", mib(htmlPeak), mib(plainPeak),
        htmlPeak / plainPeak, 1.05);
}

// Comparing two version numbers, against comparing their bytes: no allocation, a few bytes'
// scan each.
void versionCompareMeasure(bool quick) {
    const char* pairs[][2] = {{"2.0.10", "2.0.9"},
                              {"v4.1.0-rc.10+build.7", "4.1.0-rc.9"},
                              {"1.18446744073709551616", "1.18446744073709551615"},
                              {"build 2024", "2.1"}};
    const long n = quick ? 200000 : 5000000;
    volatile int sink = 0;
    const long before = liveBytes;
    peakBytes = before;
    for (long i = 0; i < n; ++i) {
        sink = sink + VelcanCompareVersions(pairs[i & 3][0], pairs[i & 3][1]);
    }
    const long allocated = peakBytes - before;
    const Pair t = interleaved(
        quick ? 3 : 7,
        [&] {
            return seconds([&] {
                for (long i = 0; i < n; ++i) {
                    sink = sink + VelcanCompareVersions(pairs[i & 3][0], pairs[i & 3][1]);
                }
            });
        },
        [&] {
            return seconds([&] {
                for (long i = 0; i < n; ++i) {
                    sink = sink + std::strcmp(pairs[i & 3][0], pairs[i & 3][1]);
                }
            });
        });
    info("VelcanCompareVersions / strcmp, per pair", ns(t.measure / static_cast<double>(n)),
         ns(t.baseline / static_cast<double>(n)), t.measure / t.baseline);
    char name[64];
    std::snprintf(name, sizeof name, "heap bytes of %ld version comparisons", n);
    row(name, std::to_string(allocated), "0", static_cast<double>(allocated), 0.0, "B");
}

void dispatchMeasure(bool quick) {
    const std::string path = "/tmp/velcan-bench-dispatch.xml";
    generateHistory(path, quick ? (1L << 20) : (20L << 20));
    std::string doc;
    {
        FILE* f = std::fopen(path.c_str(), "rb");
        char buffer[65536];
        size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) {
            doc.append(buffer, n);
        }
        std::fclose(f);
        std::remove(path.c_str());
    }
    unsigned long a = 0, b = 0;
    const Pair t = interleaved(
        quick ? 3 : 9,
        [&] {
            return seconds([&] {
                WorkReader r;
                r.XML_Parse(doc.data(), static_cast<int>(doc.size()), 1);
                a = r.work.sum;
            });
        },
        [&] {
            return seconds([&] {
                Work w;
                XML_Parser p = XML_ParserCreate(nullptr);
                XML_SetUserData(p, &w);
                XML_SetElementHandler(p, cStart, cEnd);
                XML_SetCharacterDataHandler(p, cText);
                XML_Parse(p, doc.data(), static_cast<int>(doc.size()), 1);
                XML_ParserFree(p);
                b = w.sum;
            });
        });
    row("expatpp virtual events / plain C callbacks", ms(t.measure), ms(t.baseline),
        t.measure / t.baseline, 1.03);
    if (a != b) {
        ++failures;
    }
}

// --- the runner -------------------------------------------------------------------------

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

} // namespace

int main(int argc, char** argv) {
    const bool quick = argc > 1 && std::strcmp(argv[1], "--quick") == 0;
    std::printf("| %-44s | %-14s | %-14s | %9s | %9s | %-4s |\n", "measure", "value", "baseline",
                "ratio", "target", "");
    std::printf("|%s|%s|%s|%s|%s|%s|\n", std::string(46, '-').c_str(), std::string(16, '-').c_str(),
                std::string(16, '-').c_str(), std::string(11, '-').c_str(),
                std::string(11, '-').c_str(), std::string(6, '-').c_str());
    // The runner first: ACE spawns with fork, whose cost grows with this process's memory,
    // which the reader's measures leave larger.
    runnerMeasures(quick);
    commandMeasures(quick);
    historyMeasures(quick);
    dispatchMeasure(quick);
    eventsMeasure(quick);
    lintDepthMeasure(quick);
    historyFormatsMeasure(quick);
    versionCompareMeasure(quick);
    std::printf("%d of the targets missed%s\n", failures,
                quick ? " (quick run: sizes too small to judge)" : "");
    return 0;
}
