// The product's version-history file, read into one record.
#ifndef VELCAN_HISTORY_UPDATE_FILE_H
#define VELCAN_HISTORY_UPDATE_FILE_H

#include <cstddef>
#include <string>
#include <vector>

#include "velcan/export.h"

// One released version.
struct TUpdateVersion {
    // The Version element's number attribute, as expat delivers it (references replaced,
    // tabs and line breaks turned into spaces); neither trimmed nor checked.
    std::string number;
    // The date attribute, kept the same way.
    std::string date;
    // One text per FeatureDescription element, in document order, exactly as gathered.
    std::vector<std::string> featureDescriptions;
};

// The whole version history.
struct TUpdateVersionInfo {
    // In the order in which their Version elements end in the file.
    std::vector<TUpdateVersion> versions;
    // Always empty.
    std::string extraText;
};

// Reads the version-history file at path (opened in text mode, fed to expat in 1024-byte
// pieces). The file's encoding is one expat reads itself: UTF-8 (the default), UTF-16,
// ISO-8859-1 or US-ASCII; any other declared encoding (windows-1252, say) reads as malformed.
// Returns an empty record, never throwing, when the file cannot be opened or its XML is malformed,
// empty or not standalone; the three cannot be told apart. After malformed XML the file is left
// open: it is closed only when the reading succeeds, so each failed call costs the process one
// descriptor until it ends. Check a file of unknown quality once before reading it, and do not
// retry one that read as empty in a loop.
VELCAN_API TUpdateVersionInfo VelcanParseUpdateFile(const char* path);

// Reads a version history the caller holds: the size bytes at data, which need not end in a
// NUL (a null data reads as no bytes). The same record, rules and failures as
// VelcanParseUpdateFile, fed to expat in the same pieces, with nothing opened: an empty record
// when the XML is malformed, empty or not standalone, or when memory runs out. The bytes are
// read as they are, and not kept after the call; on Windows, where the file reader's text
// mode ends a file at a Ctrl-Z (0x1A), give the bytes up to it for the same record. Safe to
// call from several threads at once.
VELCAN_API TUpdateVersionInfo VelcanParseUpdateBuffer(const char* data, std::size_t size);

#endif
