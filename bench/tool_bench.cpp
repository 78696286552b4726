// The velcan tool: events against plain expat, lint against history, and the formats.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include <velcan/velcan.h>

#include "commands.h"
#include "events_baseline.h"
#include "generate_history.h"

#include "measure.h"

namespace bench {

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

} // namespace bench
