#include "velcan/history/update_file.h"

#include <cstdio>

#include "history/format.h"
#include "history/reading.h"
#include "history/update_file_parser.h"

namespace velcan {
namespace history {
namespace {

template <typename Feed> Reading readWith(Feed feed) {
    TUpdateFileParser reader;
    const bool parserMade = static_cast<void*>(reader) != nullptr;
    const bool wellFormed = parserMade && feed(reader);
    const bool memoryRanOut =
        !parserMade || reader.outOfMemory() || reader.XML_GetErrorCode() == XML_ERROR_NO_MEMORY;
    return {wellFormed ? reader.takeInfo() : TUpdateVersionInfo(), wellFormed, memoryRanOut};
}

} // namespace

Reading readOpenFile(std::FILE* file) {
    return readWith([file](TUpdateFileParser& parser) { return feedAsTheReader(file, parser); });
}

} // namespace history
} // namespace velcan

TUpdateVersionInfo VelcanParseUpdateFile(const char* path) {
    FILE* file = std::fopen(path, "r");
    if (file == nullptr) {
        return TUpdateVersionInfo();
    }
    velcan::history::Reading r = velcan::history::readOpenFile(file);
    // By design, a history whose XML is malformed leaves its file open; reading it whole,
    // or running out of memory (no fault of the file's), closes it.
    if (r.wellFormed || r.memoryRanOut) {
        std::fclose(file);
    }
    return std::move(r.info);
}

TUpdateVersionInfo VelcanParseUpdateBuffer(const char* data, std::size_t size) {
    static const char kNothing[1] = {};
    return velcan::history::readWith([data, size](TUpdateFileParser& parser) {
               return velcan::history::feedAsTheReader(data != nullptr ? data : kNothing,
                                                       data != nullptr ? size : 0, parser);
           })
        .info;
}
