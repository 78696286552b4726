#include "history/update_file.h"

#include <cstdio>

#include "history/update_file_parser.h"

namespace {
const size_t kPieceSize = 1024;
}

TUpdateVersionInfo VelcanParseUpdateFile(const char* path) {
    FILE* file = std::fopen(path, "r");
    if (file == nullptr) {
        return TUpdateVersionInfo();
    }
    TUpdateFileParser reader;
    char buffer[kPieceSize];
    for (;;) {
        const size_t n = std::fread(buffer, 1, kPieceSize, file);
        const int isFinal = n < kPieceSize ? 1 : 0;
        if (reader.XML_Parse(buffer, static_cast<int>(n), isFinal) == 0) {
            // Malformed XML: the file is deliberately left open.
            return TUpdateVersionInfo();
        }
        if (isFinal != 0) {
            std::fclose(file);
            return reader.takeInfo();
        }
    }
}
