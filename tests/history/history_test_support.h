// Reading a version-history text through VelcanParseUpdateFile.
#ifndef VELCAN_TESTS_HISTORY_SUPPORT_H
#define VELCAN_TESTS_HISTORY_SUPPORT_H

#include <string>

#include <velcan/velcan.h>

#include "support/temp_file.h"

inline TUpdateVersionInfo readHistory(const std::string& xml) {
    TempFile file(xml);
    return VelcanParseUpdateFile(file.path());
}

inline std::string wrap(const std::string& body) {
    return "<History>" + body + "</History>";
}

// A record as one text a test can compare whole: a line per version, "number|date|" and each
// description in brackets; "(extra: TEXT)" last when extraText is not empty.
inline std::string summary(const TUpdateVersionInfo& info) {
    std::string s;
    for (const TUpdateVersion& v : info.versions) {
        s += v.number + "|" + v.date + "|";
        for (const std::string& d : v.featureDescriptions) {
            s += "[" + d + "]";
        }
        s += "\n";
    }
    return info.extraText.empty() ? s : s + "(extra: " + info.extraText + ")";
}

// What the reader makes of the text, as a summary.
inline std::string versionsIn(const std::string& xml) {
    return summary(readHistory(xml));
}

#endif
