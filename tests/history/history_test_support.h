// Reading a version-history text through VelcanParseUpdateFile, and checking that
// VelcanParseUpdateBuffer makes the same of the same bytes.
#ifndef VELCAN_TESTS_HISTORY_SUPPORT_H
#define VELCAN_TESTS_HISTORY_SUPPORT_H

#include <string>

#include <gtest/gtest.h>

#include <velcan/velcan.h>

#include "support/temp_file.h"

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

// The bytes the file reader sees of a file holding text: on Windows its text mode ends the
// file at a Ctrl-Z.
inline std::string bytesAsTextModeReadsThem(const std::string& text) {
#if defined(_WIN32)
    return text.substr(0, text.find('\x1a'));
#else
    return text;
#endif
}

// What VelcanParseUpdateFile makes of the text in a file. The memory reader, given the same
// bytes, must make the same record: the test fails where they differ.
inline TUpdateVersionInfo readHistory(const std::string& xml) {
    TempFile file(xml);
    TUpdateVersionInfo info = VelcanParseUpdateFile(file.path());
    const std::string bytes = bytesAsTextModeReadsThem(xml);
    EXPECT_EQ(summary(VelcanParseUpdateBuffer(bytes.data(), bytes.size())), summary(info))
        << "the memory reader and the file reader differ";
    return info;
}

// What the reader makes of the text, as a summary.
inline std::string versionsIn(const std::string& xml) {
    return summary(readHistory(xml));
}

#endif
