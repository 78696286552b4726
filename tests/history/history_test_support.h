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

inline std::string wrap(const std::string& body) { return "<History>" + body + "</History>"; }

#endif
