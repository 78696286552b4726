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
    if (static_cast<void*>(reader) == nullptr) {
        // No memory for a parser.
        std::fclose(file);
        return TUpdateVersionInfo();
    }
    char buffer[kPieceSize];
    for (;;) {
        const size_t n = std::fread(buffer, 1, kPieceSize, file);
        const int isFinal = n < kPieceSize ? 1 : 0;
        if (reader.XML_Parse(buffer, static_cast<int>(n), isFinal) == 0) {
            // Malformed XML: the file is deliberately left open. Memory running out is no
            // fault of the file's, and the file is closed.
            if (reader.outOfMemory() || reader.XML_GetErrorCode() == XML_ERROR_NO_MEMORY) {
                std::fclose(file);
            }
            return TUpdateVersionInfo();
        }
        if (isFinal != 0) {
            std::fclose(file);
            return reader.takeInfo();
        }
    }
}
