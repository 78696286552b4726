// velcan lint: the findings of each file, as compilers write them or as one JSON object.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "commands.h"
#include "input.h"
#include "lint.h"
#include "report.h"

int lintCommand(const Arguments& args) {
    std::vector<std::string> options;
    Arguments files;
    int status = 0;
    if (!splitArguments("lint", args, {"--json", "--fail-on="}, &options, &files, &status)) {
        return status;
    }
    bool json = false;
    bool failOnWarnings = true;
    for (const std::string& option : options) {
        if (option == "--json") {
            json = true;
        } else if (option == "--fail-on=error" || option == "--fail-on=warning") {
            failOnWarnings = option == "--fail-on=warning"; // the last one given wins
        } else {
            return usageError("lint: --fail-on: '" + option.substr(std::strlen("--fail-on=")) +
                              "' is not error or warning");
        }
    }
    if (files.empty()) {
        return usageError("lint: expects at least one FILE");
    }
    std::vector<LintFinding> findings;
    std::vector<UnreadableFile> unreadableFiles;
    for (const char* file : files) {
        std::string reason;
        if (!lintHistoryFile(file, &findings, &reason)) {
            reportError("cannot open " + shownName(file) + ": " + reason);
            unreadableFiles.push_back({shownName(file), reason});
        }
    }
    const bool unreadable = !unreadableFiles.empty();
    std::string out;
    if (json) {
        out = findingsAsJson(findings, unreadableFiles) + "\n";
    } else {
        for (const LintFinding& finding : findings) {
            out += formatFinding(finding) + "\n";
        }
    }
    bool failing = unreadable;
    for (const LintFinding& finding : findings) {
        failing = failing || finding.error || failOnWarnings;
    }
    return writeOut(out) && !failing ? 0 : kExitFailure;
}
