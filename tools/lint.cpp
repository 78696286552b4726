// velcan lint: reads a version-history file the way the reader does, with the library's own
// expatpp class, and says where the reader would lose, split or refuse something.
#include "lint.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <velcan/velcan.h>

#include "history/format.h"
#include "xml/pieces.h"
#include "json.h"
#include "input.h"
#include "report.h"

namespace {

using velcan::history::AttributeKind;
using Kind = velcan::history::ElementKind;

// Where an open Version or FeatureDescription started.
struct Open {
    int line;
    int column;
};

bool isBlank(const char* s) {
    for (; *s != '\0'; ++s) {
        if (*s != ' ' && *s != '\t' && *s != '\r' && *s != '\n') {
            return false;
        }
    }
    return true;
}

// Every event costs the same whatever the depth: the open elements are kept as one stack of
// kinds, and the open Versions and FeatureDescriptions each as a stack of their own, so the
// innermost of each is at hand without a walk.
class LintReader : public expatpp {
  public:
    LintReader(const std::string& path, std::vector<LintFinding>& findings)
        : path_(path), findings_(findings) {}

    int versions = 0;

    void startElement(const char* name, const char** atts) override {
        const Kind kind = velcan::history::elementKindOf(name);
        const int line = XML_GetCurrentLineNumber();
        const int column = columnOf(*this);
        checkLetterCase(name, kind);
        if (!descriptions_.empty()) {
            if (kind == Kind::FeatureDescription) {
                warn(line, column,
                     "FeatureDescription inside another FeatureDescription (opened at line " +
                         std::to_string(descriptions_.back().line) +
                         "): the reader splits the text and adds an empty description");
            } else {
                warn(line, column,
                     std::string("markup inside a description: the tags of '") + name +
                         "' are dropped, its text is kept");
            }
        }
        if (kind == Kind::Version) {
            ++versions;
            if (!versions_.empty()) {
                warn(line, column,
                     "Version inside another Version (opened at line " +
                         std::to_string(versions_.back().line) +
                         "): the reader stores the inner one twice and loses the outer one");
            }
            checkVersion(line, column, atts);
            versions_.push_back({line, column});
        } else if (kind == Kind::FeatureDescription) {
            if (versions_.empty()) {
                warn(line, column, "FeatureDescription outside any Version: the reader drops it");
            }
            text_.clear();
            descriptions_.push_back({line, column});
        }
        open_.push_back(kind);
    }

    void endElement(const char*) override {
        const Kind kind = open_.back();
        open_.pop_back();
        if (kind == Kind::Version) {
            versions_.pop_back();
        } else if (kind == Kind::FeatureDescription) {
            const Open element = descriptions_.back();
            descriptions_.pop_back();
            if (descriptions_.empty() && text_.find_first_not_of(" \t\r\n") == std::string::npos) {
                warn(element.line, element.column,
                     text_.empty() ? "empty description" : "blank description");
            }
        }
    }

    void charData(const char* s, int len) override {
        if (!descriptions_.empty()) {
            text_.append(s, static_cast<size_t>(len));
        }
    }

    // With a default handler set, expat passes a reference to an entity of the document's
    // own DTD here instead of expanding it; the reader never sees its text.
    void defaultHandler(const char* s, int len) override {
        if (len > 1 && s[0] == '&' && s[len - 1] == ';' && !descriptions_.empty()) {
            warn(XML_GetCurrentLineNumber(), columnOf(*this),
                 "entity reference " + std::string(s, static_cast<size_t>(len)) +
                     " is not expanded: its text is missing from the description");
        }
    }

  private:
    void checkLetterCase(const char* name, Kind kind) {
        const char* usual = velcan::history::nameOf(kind);
        if (kind != Kind::Other && std::strcmp(name, usual) != 0) {
            warn(XML_GetCurrentLineNumber(), columnOf(*this),
                 std::string("element '") + name + "' is read as '" + usual +
                     "' (the letter case differs)");
        }
    }

    void checkVersion(int line, int column, const char** atts) {
        const char* number = nullptr;
        const char* date = nullptr;
        for (const char** a = atts; *a != nullptr; a += 2) {
            const AttributeKind kind = velcan::history::attributeKindOf(a[0]);
            if (kind == AttributeKind::Other) {
                continue;
            }
            (kind == AttributeKind::Number ? number : date) =
                a[1]; // the later wins, as in the reader
            checkAttributeCase(a[0], velcan::history::nameOf(kind));
        }
        if (number == nullptr) {
            warn(line, column, "Version without a number: the reader gives it an empty one");
        } else if (isBlank(number)) {
            warn(line, column, "Version with a blank number: the reader keeps it as it is");
        } else {
            const auto seen = numbers_.find(number);
            if (seen != numbers_.end()) {
                warn(line, column,
                     std::string("two versions numbered '") + number + "' (the first at line " +
                         std::to_string(seen->second) + ")");
            } else {
                numbers_[number] = line;
            }
        }
        if (date == nullptr) {
            warn(line, column, "Version without a date: the reader gives it an empty one");
        } else if (isBlank(date)) {
            warn(line, column, "Version with a blank date: the reader keeps it as it is");
        }
    }

    void checkAttributeCase(const char* name, const char* usual) {
        if (std::strcmp(name, usual) != 0) {
            warn(XML_GetCurrentLineNumber(), columnOf(*this),
                 std::string("attribute '") + name + "' is read as '" + usual +
                     "' (the letter case differs)");
        }
    }

    void warn(int line, int column, const std::string& message) {
        findings_.push_back({path_, line, column, false, message});
    }

    const std::string& path_;
    std::vector<LintFinding>& findings_;
    std::vector<Kind> open_;
    std::vector<Open> versions_;
    std::vector<Open> descriptions_;
    std::string text_;
    std::map<std::string, int> numbers_;
};

} // namespace

bool lintHistoryFile(const std::string& given, std::vector<LintFinding>* findings,
                     std::string* reason) {
    const std::string path = shownName(given);
    std::FILE* file = openForReading(given.c_str(), reason);
    if (file == nullptr) {
        return false;
    }
    LintReader reader(path, *findings);
    const bool wellFormed = velcan::feedInPieces<velcan::history::kPieceSize>(file, reader);
    std::fclose(file);
    if (!wellFormed) {
        const XML_Error code = reader.XML_GetErrorCode();
        const std::string what = code == XML_ERROR_NOT_STANDALONE
                                     ? "not standalone (it refers to an external DTD)"
                                     : std::string("not well formed: ") + XML_ErrorString(code);
        findings->push_back({path, reader.XML_GetCurrentLineNumber(), columnOf(reader), true,
                             what + ": the reader returns an empty history"});
    } else if (reader.versions == 0) {
        findings->push_back(
            {path, 1, 1, true, "no Version element: the file reads as an empty history"});
    }
    return true;
}

std::string formatFinding(const LintFinding& f) {
    return location(f.file, f.line, f.column) + ": " + (f.error ? "error" : "warning") + ": " +
           f.message;
}

std::string findingsAsJson(const std::vector<LintFinding>& findings) {
    std::string out = "{\"format\":" + std::to_string(kLintJsonFormat) + ",\"findings\":[";
    bool first = true;
    for (const LintFinding& f : findings) {
        out += first ? "{" : ",{";
        first = false;
        out += "\"file\":" + jsonString(f.file) + ",\"line\":" + std::to_string(f.line) +
               ",\"column\":" + std::to_string(f.column) +
               ",\"severity\":" + (f.error ? "\"error\"" : "\"warning\"") +
               ",\"message\":" + jsonString(f.message) + "}";
    }
    return out + "]}";
}
