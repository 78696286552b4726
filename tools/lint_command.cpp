// velcan lint: the findings of each file, as compilers write them or as one JSON array.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "commands.h"
#include "lint.h"
#include "report.h"

int lintCommand(const Arguments& args) {
    bool json = false;
    std::vector<std::string> files;
    bool options = true;
    for (const char* arg : args) {
        if (options && std::strcmp(arg, "--") == 0) {
            options = false;
        } else if (options && std::strcmp(arg, "--json") == 0) {
            json = true;
        } else if (options && isOption(arg)) {
            return usageError(std::string("lint: unknown option '") + arg + "'");
        } else {
            files.emplace_back(arg);
        }
    }
    if (files.empty()) {
        return usageError("lint: expects at least one FILE");
    }
    std::vector<LintFinding> findings;
    for (const std::string& file : files) {
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
