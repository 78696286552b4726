// Reading a history from an open file, as VelcanParseUpdateFile does; the caller decides what
// becomes of the file. Internal: the C interface reads files this way too.
#ifndef VELCAN_HISTORY_READING_H
#define VELCAN_HISTORY_READING_H

#include <cstdio>

#include "velcan/history/update_file.h"

namespace velcan {
namespace history {

// How a reading went: the record is the reader's only when the XML was read whole.
struct Reading {
    TUpdateVersionInfo info; // empty unless wellFormed
    bool wellFormed;
    bool memoryRanOut;
};

// Reads the open file from where it stands, in the reader's pieces.
Reading readOpenFile(std::FILE* file);

} // namespace history
} // namespace velcan

#endif
