#include "velcan/history/update_file.h"

#include <cstdio>

#include "history/format.h"
#include "history/update_file_parser.h"

TUpdateVersionInfo VelcanParseUpdateFile(const char* path) {
    FILE* file = std::fopen(path, "r");
    if (file == nullptr) {
        return TUpdateVersionInfo();
    }
    TUpdateFileParser reader;
    const bool parserMade = static_cast<void*>(reader) != nullptr;
    const bool wellFormed = parserMade && velcan::history::feedAsTheReader(file, reader);
    const bool memoryRanOut =
        !parserMade || reader.outOfMemory() || reader.XML_GetErrorCode() == XML_ERROR_NO_MEMORY;
    // By design, a history whose XML is malformed leaves its file open; reading it whole,
    // or running out of memory (no fault of the file's), closes it.
    if (wellFormed || memoryRanOut) {
        std::fclose(file);
    }
    return wellFormed ? reader.takeInfo() : TUpdateVersionInfo();
}
