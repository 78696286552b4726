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

// A version's heading: its number (or "(no number)") and its date in brackets, if any.
std::string heading(const TUpdateVersion& version) {
    std::string text = version.number.empty() ? "(no number)" : version.number;
    if (!version.date.empty()) {
        text += " (" + version.date + ")";
    }
    return text;
}

std::string asText(const TUpdateVersionInfo& info) {
    std::string out;
    for (const TUpdateVersion& version : info.versions) {
        out += "Version " + heading(version) + "\n";
        for (const std::string& description : version.featureDescriptions) {
            out += "  - " + foldedWhitespace(description) + "\n";
        }
    }
    return out;
}

std::string asMarkdown(const TUpdateVersionInfo& info) {
    std::string out;
    for (const TUpdateVersion& version : info.versions) {
        out += (out.empty() ? "## " : "\n## ") + markdownEscaped(heading(version), false) + "\n";
        if (!version.featureDescriptions.empty()) {
            out += '\n';
        }
        for (const std::string& description : version.featureDescriptions) {
            const std::string item = markdownEscaped(foldedWhitespace(description), true);
            out += item.empty() ? "-\n" : "- " + item + "\n";
        }
    }
    return out;
}

std::string asHtml(const TUpdateVersionInfo& info) {
    std::string out;
    for (const TUpdateVersion& version : info.versions) {
        out += "<section class=\"version\">\n<h2>" + htmlEscaped(heading(version)) + "</h2>\n";
        if (!version.featureDescriptions.empty()) {
            out += "<ul>\n";
            for (const std::string& description : version.featureDescriptions) {
                out += "<li>" + htmlEscaped(foldedWhitespace(description)) + "</li>\n";
            }
            out += "</ul>\n";
        }
        out += "</section>\n";
    }
    return out;
}

std::string asHtmlPage(const TUpdateVersionInfo& info) {
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<title>Release notes</title>\n</head>\n<body>\n" +
           asHtml(info) + "</body>\n</html>\n";
}

std::string asJson(const TUpdateVersionInfo& info) {
    std::string out = "{\"format\":1,\"versions\":[";
    for (std::size_t v = 0; v < info.versions.size(); ++v) {
        const TUpdateVersion& version = info.versions[v];
        out += v == 0 ? "{" : ",{";
        out += "\"number\":" + jsonString(version.number);
        out += ",\"date\":" + jsonString(version.date);
        out += ",\"featureDescriptions\":[";
        for (std::size_t d = 0; d < version.featureDescriptions.size(); ++d) {
            if (d != 0) {
                out += ',';
            }
            out += jsonString(version.featureDescriptions[d]);
        }
        out += "]}";
    }
    out += "],\"extraText\":" + jsonString(info.extraText) + "}\n";
    return out;
}

} // namespace

std::string foldedWhitespace(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    bool pendingSpace = false;
    for (const char c : text) {
        if (isBlank(c)) {
            pendingSpace = !out.empty();
            continue;
        }
        if (pendingSpace) {
            out += ' ';
            pendingSpace = false;
        }
        out += c;
    }
    return out;
}

std::string markdownEscaped(const std::string& text, bool startsABlock) {
    // Acted on anywhere: emphasis, code, links and images, raw HTML and references, tables,
    // strikethrough, headings' closing marks, and the escape itself.
    static const char kInline[] = "\\`*_[]<>&!|~#";
    // Acted on at the start of a block: lists, block quotes, setext underlines.
    static const char kAtStart[] = "+-=>";
    std::string out;
    out.reserve(text.size() + text.size() / 8);
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
    return out;
}

std::string htmlEscaped(const std::string& text) {
    std::string out;
    out.reserve(text.size() + text.size() / 8);
    for (const char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        case '\'':
            out += "&#39;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string releaseNotes(const TUpdateVersionInfo& info, NotesFormat format) {
    switch (format) {
    case NotesFormat::Json:
        return asJson(info);
    case NotesFormat::Markdown:
        return asMarkdown(info);
    case NotesFormat::Html:
        return asHtml(info);
    case NotesFormat::HtmlPage:
        return asHtmlPage(info);
    case NotesFormat::Text:
        break;
    }
    return asText(info);
}
