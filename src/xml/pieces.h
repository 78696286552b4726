// Feeding an open file, or bytes in memory, to an expatpp reader piece by piece. Internal; the
// history reader and the velcan tool share it, so that what the tool reports matches what the
// reader meets.
#ifndef VELCAN_XML_PIECES_H
#define VELCAN_XML_PIECES_H

#include <cstddef>
#include <cstdio>

#include "velcan/xml/expatpp.h"

namespace velcan {

// Reads the open file in pieces of PieceSize bytes and hands each to reader.XML_Parse as it
// is read, the first short one (an empty one after a whole multiple) marked final. A read
// error is not told apart from the end of the file. Returns false at the first XML error,
// true once the final piece has been accepted.
template <std::size_t PieceSize> bool feedInPieces(std::FILE* file, expatpp& reader) {
    char buffer[PieceSize];
    for (;;) {
        const std::size_t n = std::fread(buffer, 1, PieceSize, file);
        const int isFinal = n < PieceSize ? 1 : 0;
        if (reader.XML_Parse(buffer, static_cast<int>(n), isFinal) == 0) {
            return false;
        }
        if (isFinal != 0) {
            return true;
        }
    }
}

// The same for size bytes held in memory at data: the same pieces, the same final mark.
template <std::size_t PieceSize>
bool feedInPieces(const char* data, std::size_t size, expatpp& reader) {
    for (std::size_t at = 0;; at += PieceSize) {
        const std::size_t n = size - at < PieceSize ? size - at : PieceSize;
        const int isFinal = n < PieceSize ? 1 : 0;
        if (reader.XML_Parse(data + at, static_cast<int>(n), isFinal) == 0) {
            return false;
        }
        if (isFinal != 0) {
            return true;
        }
    }
}

} // namespace velcan

#endif
