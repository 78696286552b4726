#include "velcan/history/update_file.h"

#include <cstdio>

#include "history/format.h"
#include "history/update_file_parser.h"

namespace {

// How one reading went: the record is the reader's only when the XML was read whole.
struct Reading {
    bool wellFormed;
    bool memoryRanOut;
};

template <typename Feed> Reading readInto(TUpdateFileParser& reader, Feed feed) {
    const bool parserMade = static_cast<void*>(reader) != nullptr;
    const bool wellFormed = parserMade && feed(reader);
    return {wellFormed, !parserMade || reader.outOfMemory() ||
                            reader.XML_GetErrorCode() == XML_ERROR_NO_MEMORY};
}

} // namespace

TUpdateVersionInfo VelcanParseUpdateFile(const char* path) {
    FILE* file = std::fopen(path, "r");
    if (file == nullptr) {
        return TUpdateVersionInfo();
    }
    TUpdateFileParser reader;
    const Reading r = readInto(reader, [file](TUpdateFileParser& parser) {
        return velcan::history::feedAsTheReader(file, parser);
    });
    // By design, a history whose XML is malformed leaves its file open; reading it whole,
    // or running out of memory (no fault of the file's), closes it.
    if (r.wellFormed || r.memoryRanOut) {
        std::fclose(file);
    }
    return r.wellFormed ? reader.takeInfo() : TUpdateVersionInfo();
}

TUpdateVersionInfo VelcanParseUpdateBuffer(const char* data, std::size_t size) {
    static const char kNothing[1] = {};
    TUpdateFileParser reader;
    const Reading r = readInto(reader, [data, size](TUpdateFileParser& parser) {
        return velcan::history::feedAsTheReader(data != nullptr ? data : kNothing,
                                                data != nullptr ? size : 0, parser);
    });
    return r.wellFormed ? reader.takeInfo() : TUpdateVersionInfo();
}
