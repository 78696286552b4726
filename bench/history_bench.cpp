// The version history: the reader against expat alone, its memory, and version order.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <expat.h>
#include <velcan/c.h>
#include <velcan/velcan.h>

#include "generate_history.h"

#include "measure.h"

namespace bench {

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
        wrongResult("VelcanParseUpdateFile read " + std::to_string(versionsRead) + " versions of " +
                    std::to_string(versions));
    }

    const long before = liveBytes;
    peakBytes = before;
    const TUpdateVersionInfo info = VelcanParseUpdateFile(path.c_str());
    const double growth = static_cast<double>(peakBytes - before);
    const double owned = static_cast<double>(ownedBytes(info));
    row("peak heap growth / bytes the record owns", mib(growth), mib(owned), growth / owned, 1.20);

    // The same file through the C interface (the handle freed), against the C++ call.
    size_t countC = 0;
    const Pair c = interleaved(
        quick ? 3 : 7,
        [&] {
            return seconds([&] {
                velcan_history* history = nullptr;
                velcan_history_read_file(path.c_str(), &history);
                countC = velcan_history_count(history);
                velcan_history_free(history);
            });
        },
        [&] { return seconds([&] { VelcanParseUpdateFile(path.c_str()); }); });
    row("history: C interface / C++ call", ms(c.measure), ms(c.baseline), c.measure / c.baseline,
        1.05);
    if (static_cast<long>(countC) != versions) {
        wrongResult("velcan_history_read_file read " + std::to_string(countC) + " versions of " +
                    std::to_string(versions));
    }
    std::remove(path.c_str());
}

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

} // namespace bench
