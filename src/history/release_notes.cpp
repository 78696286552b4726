#include "history/release_notes.h"

#include <cstring>

#include "history/ascii.h"

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Whether text has "www" (in any letter case) at `at`, not inside a word.
bool isWww(const std::string& text, std::size_t at) {
    for (std::size_t k = 0; k < 3; ++k) {
        if (text[at + k] != 'w' && text[at + k] != 'W') {
            return false;
        }
    }
    const char before = at == 0 ? ' ' : text[at - 1];
    return !isAsciiLetterOrDigit(before);
}

// The length of the bidirectional control character (U+061C, U+200E, U+200F, U+202A to U+202E,
// U+2066 to U+2069) in UTF-8 at p, before end, or 0. Such a character reorders the text around
// it where it is shown, unseen: the notes mark it instead of passing it on.
std::size_t bidiControlAt(const char* p, const char* end) {
    const unsigned char* u = reinterpret_cast<const unsigned char*>(p);
    const std::ptrdiff_t left = end - p;
    if (left >= 2 && u[0] == 0xD8 && u[1] == 0x9C) {
        return 2;
    }
    if (left >= 3 && u[0] == 0xE2 &&
        ((u[1] == 0x80 && (u[2] == 0x8E || u[2] == 0x8F || (u[2] >= 0xAA && u[2] <= 0xAE))) ||
         (u[1] == 0x81 && u[2] >= 0xA6 && u[2] <= 0xA9))) {
        return 3;
    }
    return 0;
}

// The visible mark of the bidirectional control character of `length` bytes at p: "[U+202E]".
void appendBidiMark(std::string& out, const char* p, std::size_t length) {
    const unsigned char* u = reinterpret_cast<const unsigned char*>(p);
    const unsigned code = length == 2
                              ? ((u[0] & 0x1Fu) << 6) | (u[1] & 0x3Fu)
                              : ((u[0] & 0x0Fu) << 12) | ((u[1] & 0x3Fu) << 6) | (u[2] & 0x3Fu);
    static const char kHex[] = "0123456789ABCDEF";
    out += "[U+";
    for (int shift = 12; shift >= 0; shift -= 4) {
        out += kHex[(code >> shift) & 0xFu];
    }
    out += ']';
}

// The characters HTML would read as markup, and what stands for each.
const char* htmlReference(char c) {
    switch (c) {
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    case '"':
        return "&quot;";
    case '\'':
        return "&#39;";
    default:
        return nullptr;
    }
}

// Whether byte c can start a bidirectional control character.
bool mayStartBidiControl(char c) {
    return c == '\xD8' || c == '\xE2';
}

void appendHtmlEscapedRun(std::string& out, const char* p, std::size_t length) {
    const char* end = p + length;
    while (p != end) {
        const char* run = p;
        std::size_t bidi = 0;
        while (p != end && htmlReference(*p) == nullptr &&
               (!mayStartBidiControl(*p) || (bidi = bidiControlAt(p, end)) == 0)) {
            ++p;
        }
        out.append(run, static_cast<std::size_t>(p - run));
        if (bidi != 0) {
            appendBidiMark(out, p, bidi);
            p += bidi;
        } else if (p != end) {
            out += htmlReference(*p++);
        }
    }
}

// What each byte is to the folding: other text, a blank (space, tab, CR, LF), a character
// HTML reads as markup, or the first byte of what may be a bidirectional control.
enum ByteKind : unsigned char { kOther, kBlank, kHtmlSpecial, kMaybeBidi };

struct ByteKinds {
    ByteKind kind[256];
    ByteKinds() {
        for (int c = 0; c < 256; ++c) {
            const char byte = static_cast<char>(c);
            kind[c] = isBlank(byte)                    ? kBlank
                      : htmlReference(byte) != nullptr ? kHtmlSpecial
                      : mayStartBidiControl(byte)      ? kMaybeBidi
                                                       : kOther;
        }
    }
};

// Folds text into out in one pass, escaping for HTML when asked.
void appendFoldedText(std::string& out, const std::string& text, bool html) {
    static const ByteKinds kinds;
    const char* p = text.data();
    const char* end = p + text.size();
    while (p != end && isBlank(*p)) {
        ++p;
    }
    const char* run = p;
    while (p != end) {
        const ByteKind k = kinds.kind[static_cast<unsigned char>(*p)];
        const std::size_t bidi = k == kMaybeBidi && html ? bidiControlAt(p, end) : 0;
        if (k == kOther || (k != kBlank && !html) || (k == kMaybeBidi && bidi == 0)) {
            ++p;
            continue;
        }
        out.append(run, static_cast<std::size_t>(p - run));
        if (k == kMaybeBidi) {
            appendBidiMark(out, p, bidi);
            p += bidi;
        } else if (k == kHtmlSpecial) {
            out += htmlReference(*p++);
        } else {
            while (p != end && isBlank(*p)) {
                ++p;
            }
            if (p != end) {
                out += ' ';
            }
        }
        run = p;
    }
    out.append(run, static_cast<std::size_t>(p - run));
}

} // namespace

void appendFolded(std::string& out, const std::string& text) {
    appendFoldedText(out, text, false);
}

void appendFoldedHtmlEscaped(std::string& out, const std::string& text) {
    appendFoldedText(out, text, true);
}

void appendMarkdownEscaped(std::string& out, const std::string& text, bool startsABlock) {
    // Acted on anywhere: emphasis, code, links and images, raw HTML and references, tables,
    // strikethrough, headings' closing marks, and the escape itself.
    static const char kInline[] = "\\`*_[]<>&!|~#";
    // Acted on at the start of a block: lists, block quotes, setext underlines.
    static const char kAtStart[] = "+-=>";
    std::size_t digits = 0;
    while (startsABlock && digits < text.size() && isAsciiDigit(text[digits])) {
        ++digits;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const std::size_t bidi =
            mayStartBidiControl(c) ? bidiControlAt(text.data() + i, text.data() + text.size()) : 0;
        if (bidi != 0) {
            // Its mark, the brackets escaped: "\[U+202E\]".
            std::string mark;
            appendBidiMark(mark, text.data() + i, bidi);
            out += '\\';
            out.append(mark, 0, mark.size() - 1);
            out += "\\]";
            i += bidi - 1;
            continue;
        }
        const bool orderedListMark = i == digits && digits > 0 && (c == '.' || c == ')');
        const bool acted =
            c != '\0' && (std::strchr(kInline, c) != nullptr ||
                          (startsABlock && i == 0 && std::strchr(kAtStart, c) != nullptr));
        // GitHub's dialect links bare addresses: "http://..." and "www...."
        const bool linkMark = (c == ':' && text.compare(i + 1, 2, "//") == 0) ||
                              (c == '.' && i >= 3 && isWww(text, i - 3));
        if (acted || orderedListMark || linkMark) {
            out += '\\';
        }
        out += c;
    }
}

void appendHtmlEscaped(std::string& out, const std::string& text) {
    appendHtmlEscapedRun(out, text.data(), text.size());
}
