// The version-history file as the reader reads it: the names it knows, their kinds, and how
// it feeds the file to the parser. Internal; the reader and `velcan lint` both take
// the format from here.
#ifndef VELCAN_HISTORY_FORMAT_H
#define VELCAN_HISTORY_FORMAT_H

#include <cstddef>
#include <cstring>

#include "history/ascii.h"
#include "xml/pieces.h"

namespace velcan {
namespace history {

// The size of each piece read from the file and handed to the parser.
const std::size_t kPieceSize = 1024;

// Feeds the open file to reader as the history reader feeds it: in kPieceSize pieces (see
// feedInPieces). False at the first XML error.
inline bool feedAsTheReader(std::FILE* file, expatpp& reader) {
    return feedInPieces<kPieceSize>(file, reader);
}
// The same for bytes in memory.
inline bool feedAsTheReader(const char* data, std::size_t size, expatpp& reader) {
    return feedInPieces<kPieceSize>(data, size, reader);
}

// The elements the reader knows; every other element is Other, and ignored.
enum class ElementKind : unsigned char { Other, Version, FeatureDescription };
// The attributes of a Version the reader knows; every other one is Other, and ignored.
enum class AttributeKind : unsigned char { Other, Number, Date };

// Each name as the format writes it. Names are compared without regard to ASCII letter case.
inline const char* nameOf(ElementKind kind) {
    return kind == ElementKind::Version              ? "Version"
           : kind == ElementKind::FeatureDescription ? "FeatureDescription"
                                                     : "";
}
inline const char* nameOf(AttributeKind kind) {
    return kind == AttributeKind::Number ? "number" : kind == AttributeKind::Date ? "date" : "";
}

// The kind of an element name. The length picks the one name it can be before any letter
// is compared.
inline ElementKind elementKindOf(const char* name) {
    static const char version[] = "version";
    static const char featureDescription[] = "featuredescription";
    switch (std::strlen(name)) {
    case sizeof version - 1:
        return foldedEquals(name, version, sizeof version - 1) ? ElementKind::Version
                                                               : ElementKind::Other;
    case sizeof featureDescription - 1:
        return foldedEquals(name, featureDescription, sizeof featureDescription - 1)
                   ? ElementKind::FeatureDescription
                   : ElementKind::Other;
    default:
        return ElementKind::Other;
    }
}

// The kind of an attribute name of a Version.
inline AttributeKind attributeKindOf(const char* name) {
    if (equalsIgnoringCase(name, "number")) {
        return AttributeKind::Number;
    }
    return equalsIgnoringCase(name, "date") ? AttributeKind::Date : AttributeKind::Other;
}

} // namespace history
} // namespace velcan

#endif
