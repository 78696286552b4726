// velcan lint: what the version-history reader would drop, split, empty or refuse in a file.
#ifndef VELCAN_TOOLS_LINT_H
#define VELCAN_TOOLS_LINT_H

#include <string>
#include <vector>

struct LintFinding {
    std::string file;
    int line;   // 1-based
    int column; // 1-based
    bool error; // an error makes the reader return an empty history; a warning loses less
    std::string message;
};

// Reads the file with the library's own reader class, fed in 1024-byte pieces as the history
// reader feeds it, and returns every finding in the order met.
std::vector<LintFinding> lintHistoryFile(const std::string& path);

// "FILE:LINE:COLUMN: error|warning: message", as compilers write it.
std::string formatFinding(const LintFinding& finding);

// The findings as one JSON array of objects with file, line, column, severity and message.
std::string findingsAsJson(const std::vector<LintFinding>& findings);

#endif
