// velcan version: compares two version numbers, or sorts them, as the library orders them.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <velcan/velcan.h>

#include "commands.h"
#include "input.h"
#include "report.h"

namespace {

// dpkg --compare-versions' relations, each as the comparisons it holds for.
struct Relation {
    const char* names[2];
    bool less;
    bool equal;
    bool greater;
};
const Relation kRelations[] = {
    {{"lt", "<<"}, true, false, false}, {{"le", "<="}, true, true, false},
    {{"eq", "="}, false, true, false},  {{"ne", "!="}, true, false, true},
    {{"ge", ">="}, false, true, true},  {{"gt", ">>"}, false, false, true},
};

int compare(const std::vector<const char*>& operands) {
    if (operands.size() == 2) {
        const int c = VelcanCompareVersions(operands[0], operands[1]);
        return writeOut(c < 0 ? "<\n" : c > 0 ? ">\n" : "=\n") ? 0 : kExitFailure;
    }
    if (operands.size() != 3) {
        return usageError("version compare: give A B, or A OP B");
    }
    for (const Relation& r : kRelations) {
        if (std::strcmp(operands[1], r.names[0]) == 0 ||
            std::strcmp(operands[1], r.names[1]) == 0) {
            const int c = VelcanCompareVersions(operands[0], operands[2]);
            return (c < 0 ? r.less : c > 0 ? r.greater : r.equal) ? 0 : kExitFailure;
        }
    }
    return usageError(std::string("version compare: '") + operands[1] +
                      "' is not lt, le, eq, ne, ge or gt (<<, <=, =, !=, >=, >>)");
}

int sort(const std::vector<const char*>& operands) {
    std::vector<std::string> versions(operands.begin(), operands.end());
    if (operands.empty()) {
        // One version a line from standard input; a line end (LF or CR LF) is not part of it.
        std::string text;
        std::string reason;
        if (!readWhole(stdin, &text, &reason)) {
            reportError("cannot read (standard input): " + reason);
            return kExitFailure;
        }
        for (std::size_t at = 0; at < text.size();) {
            std::size_t end = text.find('\n', at);
            end = end == std::string::npos ? text.size() : end;
            std::string line = text.substr(at, end - at);
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
            versions.push_back(line);
            at = end + 1;
        }
    }
    // Equal versions ("2.1", "2.1.0") keep their order.
    std::stable_sort(versions.begin(), versions.end(),
                     [](const std::string& a, const std::string& b) {
                         return VelcanCompareVersions(a.c_str(), b.c_str()) < 0;
                     });
    std::string out;
    for (const std::string& v : versions) {
        out += v + "\n";
    }
    return writeOut(out) ? 0 : kExitFailure;
}

} // namespace

int versionCommand(const Arguments& args) {
    std::vector<std::string> options;
    Arguments operands;
    int status = 0;
    if (args.empty()) {
        return usageError("version: compare or sort?");
    }
    const std::string what = args[0];
    if (!splitArguments("version", Arguments(args.begin() + 1, args.end()), {}, &options, &operands,
                        &status)) {
        return status;
    }
    if (what == "compare") {
        return compare(operands);
    }
    if (what == "sort") {
        return sort(operands);
    }
    return usageError("version: '" + what + "' is not compare or sort");
}
