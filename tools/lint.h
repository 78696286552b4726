// velcan lint: what the version-history reader would drop, split, empty or refuse in a file.
#ifndef VELCAN_TOOLS_LINT_H
#define VELCAN_TOOLS_LINT_H

#include <cstdio>
#include <string>
#include <vector>

class TUpdateFileParser;

struct LintFinding {
    std::string file;
    int line;   // 1-based
    int column; // 1-based
    bool error; // an error makes the reader return an empty history; a warning loses less
    std::string message;
};

// The version of lint's JSON, its "format" member; raised when a member changes meaning or
// goes away (a member added leaves it as it is).
const int kLintJsonFormat = 1;

// Reads the file ("-": standard input) with the library's own history reader, fed as
// VelcanParseUpdateFile feeds it, and appends every finding, in the order of the places they
// name. False, with *reason ("No such file or directory"), when the file cannot be opened.
bool lintHistoryFile(const std::string& path, std::vector<LintFinding>* findings,
                     std::string* reason);

// The same, from a file open at its start, named `path` in the findings, read by `reader` (the
// history reader, or in a test one that reads by other rules, which lint then follows).
void lintWithReader(std::FILE* file, const std::string& path, TUpdateFileParser& reader,
                    std::vector<LintFinding>* findings);

// "FILE:LINE:COLUMN: error|warning: message", as compilers write it.
std::string formatFinding(const LintFinding& finding);

// A file lint could not read, and why ("No such file or directory").
struct UnreadableFile {
    std::string file;
    std::string reason;
};

// The findings as one JSON object: {"format": kLintJsonFormat, "findings": [{"file", "line",
// "column", "severity", "message"}, ...], "unreadable": [{"file", "reason"}, ...]}, so that a
// program reading it never takes a file it could not read for a clean one. Always valid UTF-8:
// a byte of a file name that is not UTF-8 becomes U+FFFD.
std::string findingsAsJson(const std::vector<LintFinding>& findings,
                           const std::vector<UnreadableFile>& unreadable);

#endif
