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

void appendHtmlEscapedRun(std::string& out, const char* p, std::size_t length) {
    const char* end = p + length;
    while (p != end) {
        const char* run = p;
        while (p != end && htmlReference(*p) == nullptr) {
            ++p;
        }
        out.append(run, static_cast<std::size_t>(p - run));
        if (p != end) {
            out += htmlReference(*p++);
        }
    }
}

// What each byte is to the folding: other text, a blank (space, tab, CR, LF), or a character
// HTML reads as markup.
enum ByteKind : unsigned char { kOther, kBlank, kHtmlSpecial };

struct ByteKinds {
    ByteKind kind[256];
    ByteKinds() {
        for (int c = 0; c < 256; ++c) {
            kind[c] = isBlank(static_cast<char>(c))                    ? kBlank
                      : htmlReference(static_cast<char>(c)) != nullptr ? kHtmlSpecial
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
        if (k == kOther || (k == kHtmlSpecial && !html)) {
            ++p;
            continue;
        }
        out.append(run, static_cast<std::size_t>(p - run));
        if (k == kHtmlSpecial) {
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
