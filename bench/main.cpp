// velcan's measures, each beside its physical floor measured in the same run. Pairs run in
// interleaved rounds; the ratio is of the medians. Prints one table.
//   velcan_bench [--quick]
#include <cstdio>
#include <cstring>
#include <string>

#include "measure.h"

using namespace bench;

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
    outputLimitMeasure(quick);
    historyMeasures(quick);
    dispatchMeasure(quick);
    eventsMeasure(quick);
    lintDepthMeasure(quick);
    historyFormatsMeasure(quick);
    versionCompareMeasure(quick);
    std::printf("%d of the targets missed%s\n", missedTargets(),
                quick ? " (quick run: sizes too small to judge)" : "");
    return 0;
}
