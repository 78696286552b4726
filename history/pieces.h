// Feeding a file to an expatpp reader the way the history reader does. Internal; the
// velcan tool shares it so that what it reports matches what the reader meets.
#ifndef VELCAN_HISTORY_PIECES_H
#define VELCAN_HISTORY_PIECES_H

#include <cstddef>
#include <cstdio>

#include "velcan/xml/expatpp.h"

namespace velcan {

// The size of each piece read from the file and handed to the parser.
const std::size_t kPieceSize = 1024;

// Reads the open file in kPieceSize pieces and hands each to reader.XML_Parse as it is read,
// the first short one (an empty one after a whole multiple) marked final. A read error is
// not told apart from the end of the file. Returns false at the first XML error, true once
// the final piece has been accepted.
inline bool feedInPieces(std::FILE* file, expatpp& reader) {
    char buffer[kPieceSize];
    for (;;) {
        const std::size_t n = std::fread(buffer, 1, kPieceSize, file);
        const int isFinal = n < kPieceSize ? 1 : 0;
        if (reader.XML_Parse(buffer, static_cast<int>(n), isFinal) == 0) {
            return false;
        }
        if (isFinal != 0) {
            return true;
        }
    }
}

} // namespace velcan

#endif
