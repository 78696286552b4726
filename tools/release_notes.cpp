#include "release_notes.h"

#include <cstring>

#include "json.h"

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Whether text has "www" (in any letter case) at `at`, not inside a word.
bool isWww(const std::string& text, std::size_t at) {
    for (std::size_t k = 0; k < 3; ++k) {
        if (text[at + k] != 'w' && text[at + k] != 'W') {
            return false;
        }
    }
    const char before = at == 0 ? ' ' : text[at - 1];
    return !(isDigit(before) || (before >= 'a' && before <= 'z') ||
             (before >= 'A' && before <= 'Z'));
}

// Appends a version's heading: its number (or "(no number)") and its date in brackets, if any.
void appendHeading(std::string& out, const TUpdateVersion& version) {
    out += version.number.empty() ? "(no number)" : version.number;
    if (!version.date.empty()) {
        out += " (";
        out += version.date;
        out += ')';
    }
}

} // namespace

namespace {

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

} // namespace

namespace {

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
    while (startsABlock && digits < text.size() && isDigit(text[digits])) {
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

std::string NotesWriter::begin() const {
    switch (format_) {
    case NotesFormat::Json:
        return "{\"format\":1,\"versions\":[";
    case NotesFormat::HtmlPage:
        return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
               "<title>Release notes</title>\n</head>\n<body>\n";
    default:
        return "";
    }
}

const std::string& NotesWriter::folded(const std::string& description) {
    folded_.clear();
    appendFolded(folded_, description);
    return folded_;
}

void NotesWriter::version(const TUpdateVersion& version, std::string& out) {
    const bool first = first_;
    first_ = false;
    switch (format_) {
    case NotesFormat::Text:
        out += "Version ";
        appendHeading(out, version);
        out += '\n';
        for (const std::string& description : version.featureDescriptions) {
            out += "  - ";
            appendFolded(out, description);
            out += '\n';
        }
        break;
    case NotesFormat::Markdown:
        out += first ? "## " : "\n## ";
        folded_.clear();
        appendHeading(folded_, version);
        appendMarkdownEscaped(out, folded_, false);
        out += version.featureDescriptions.empty() ? "\n" : "\n\n";
        for (const std::string& description : version.featureDescriptions) {
            const std::string& text = folded(description);
            out += text.empty() ? "-" : "- ";
            appendMarkdownEscaped(out, text, true);
            out += '\n';
        }
        break;
    case NotesFormat::Html:
    case NotesFormat::HtmlPage:
        out += "<section class=\"version\">\n<h2>";
        folded_.clear();
        appendHeading(folded_, version);
        appendHtmlEscaped(out, folded_);
        out += "</h2>\n";
        if (!version.featureDescriptions.empty()) {
            out += "<ul>\n";
            for (const std::string& description : version.featureDescriptions) {
                out += "<li>";
                appendFoldedHtmlEscaped(out, description);
                out += "</li>\n";
            }
            out += "</ul>\n";
        }
        out += "</section>\n";
        break;
    case NotesFormat::Json:
        out += first ? "{" : ",{";
        out += "\"number\":";
        appendJsonString(out, version.number.data(), version.number.size());
        out += ",\"date\":";
        appendJsonString(out, version.date.data(), version.date.size());
        out += ",\"featureDescriptions\":[";
        for (std::size_t d = 0; d < version.featureDescriptions.size(); ++d) {
            if (d != 0) {
                out += ',';
            }
            const std::string& text = version.featureDescriptions[d];
            appendJsonString(out, text.data(), text.size());
        }
        out += "]}";
        break;
    }
}

std::string NotesWriter::end(const std::string& extraText) const {
    switch (format_) {
    case NotesFormat::Json:
        return "],\"extraText\":" + jsonString(extraText) + "}\n";
    case NotesFormat::HtmlPage:
        return "</body>\n</html>\n";
    default:
        return "";
    }
}
