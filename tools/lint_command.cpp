// velcan lint: the findings of each file, as compilers write them or as one JSON array.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "commands.h"
#include "lint.h"
#include "report.h"

int lintCommand(const Arguments& args) {
    std::vector<std::string> options;
    Arguments files;
    int status = 0;
    if (!splitArguments("lint", args, {"--json"}, &options, &files, &status)) {
        return status;
    }
    const bool json = !options.empty();
    if (files.empty()) {
        return usageError("lint: expects at least one FILE");
    }
    std::vector<LintFinding> findings;
    for (const char* file : files) {
        const std::vector<LintFinding> some = lintHistoryFile(file);
        findings.insert(findings.end(), some.begin(), some.end());
    }
    std::string out;
    if (json) {
        out = findingsAsJson(findings) + "\n";
    } else {
        for (const LintFinding& finding : findings) {
            out += formatFinding(finding) + "\n";
        }
    }
    return writeOut(out) && findings.empty() ? 0 : kExitFailure;
}
