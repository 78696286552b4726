// velcan lint: runs the library's own history reader over a file, fed the way
// VelcanParseUpdateFile feeds it, and says what the reader did with each part of the document:
// what it drops, splits, stores twice or refuses is read off the reader as it works, so that
// lint follows the reader. The checks of the data itself (attributes, duplicates, letter case)
// are lint's own.
#include "lint.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <velcan/velcan.h>

#include "history/format.h"
#include "history/update_file_parser.h"
#include "input.h"
#include "history/json.h"
#include "report.h"

namespace {

using velcan::history::AttributeKind;
using Kind = velcan::history::ElementKind;

// A place in the document.
struct Place {
    int line;
    int column;
};

// An element open now, as the format names it.
struct Open {
    Kind kind;
    Place start;
    bool inVersion;   // a Version was open when it started
    bool hadNested;   // a FeatureDescription started inside it
    bool readerTakes; // the reader was gathering no description when it started
};

bool isBlank(const char* s) {
    for (; *s != '\0'; ++s) {
        if (*s != ' ' && *s != '\t' && *s != '\r' && *s != '\n') {
            return false;
        }
    }
    return true;
}

bool isBlank(const std::string& s) {
    return isBlank(s.c_str());
}

// Hands every event to the reader and compares what the reader holds before and after. Each
// event costs the same at any depth: nothing walks the open elements.
class LintReader : public expatpp {
  public:
    LintReader(TUpdateFileParser& reader, const std::string& path,
               std::vector<LintFinding>& findings)
        : reader_(reader), path_(path), findings_(findings) {}

    void startElement(const char* name, const char** atts) override {
        const Kind kind = velcan::history::elementKindOf(name);
        const Place here{XML_GetCurrentLineNumber(), columnOf(*this)};
        checkLetterCase(name, kind, here);
        const bool gathering = reader_.gatheringDescription();
        const std::size_t held = reader_.heldDescriptions().size();
        if (gathering && kind == Kind::FeatureDescription) {
            warn(here, "FeatureDescription inside another FeatureDescription (opened at line " +
                           std::to_string(innermostDescription().line) +
                           "): the reader splits the text and adds an empty description");
        } else if (gathering) {
            warn(here, std::string("markup inside a description: the tags of '") + name +
                           "' are dropped, its text is kept");
        }
        if (kind == Kind::FeatureDescription && !descriptions_.empty()) {
            open_[descriptions_.back()].hadNested = true;
        }
        if (kind == Kind::Version) {
            checkVersion(here, atts, versions_.empty());
            lastVersion_ = here;
        }
        reader_.startElement(name, atts);
        if (reader_.heldDescriptions().size() < held) {
            drop(held); // a Version start overwrote the version that held them
        }
        if (kind == Kind::Version) {
            versions_.push_back(open_.size());
        } else if (kind == Kind::FeatureDescription) {
            descriptions_.push_back(open_.size());
        }
        open_.push_back(
            {kind, here, !versions_.empty() && kind != Kind::Version, false, !gathering});
    }

    void endElement(const char* name) override {
        const Open element = open_.back();
        open_.pop_back();
        if (element.kind == Kind::Version) {
            versions_.pop_back();
        } else if (element.kind == Kind::FeatureDescription) {
            descriptions_.pop_back();
        }
        const std::size_t held = reader_.heldDescriptions().size();
        const std::size_t stored = reader_.record().versions.size();
        const bool storesACopy = reader_.versionStored();
        reader_.endElement(name);
        if (element.kind == Kind::FeatureDescription) {
            endDescription(element, held);
        } else if (element.kind == Kind::Version && reader_.record().versions.size() > stored) {
            heldAt_.clear(); // stored with the version, so kept
            if (storesACopy) {
                warn(lastVersion_, "Version inside another Version (opened at line " +
                                       std::to_string(element.start.line) +
                                       "): the reader stores the inner one twice and loses "
                                       "the outer one");
            }
        }
    }

    void charData(const char* s, int len) override { reader_.charData(s, len); }

    // With a default handler set, expat passes a reference to an entity of the document's
    // own DTD here instead of expanding it; the reader never sees its text.
    void defaultHandler(const char* s, int len) override {
        if (len > 1 && s[0] == '&' && s[len - 1] == ';' && reader_.gatheringDescription()) {
            warn({XML_GetCurrentLineNumber(), columnOf(*this)},
                 "entity reference " + std::string(s, static_cast<size_t>(len)) +
                     " is not expanded: its text is missing from the description");
        }
    }

    // Once the document has been read whole: what the reader still holds, it drops.
    void finish() {
        drop(reader_.heldDescriptions().size());
        if (reader_.record().versions.empty()) {
            findings_.push_back(
                {path_, 1, 1, true, "no Version element: the file reads as an empty history"});
        }
    }

  private:
    // A FeatureDescription ended: the reader holds one more description, or did not take it.
    void endDescription(const Open& element, std::size_t held) {
        const std::vector<std::string>& now = reader_.heldDescriptions();
        if (now.size() != held + 1) {
            if (element.readerTakes) {
                warn(element.start, "FeatureDescription the reader does not take: it is not "
                                    "in the record");
            }
            return;
        }
        heldAt_.push_back({element.start, element.inVersion});
        if (!element.hadNested && isBlank(now.back())) {
            warn(element.start, now.back().empty() ? "empty description" : "blank description");
        }
    }

    // The first `count` descriptions the reader held were dropped.
    void drop(std::size_t count) {
        for (std::size_t i = 0; i < count && i < heldAt_.size(); ++i) {
            warn(heldAt_[i].place,
                 heldAt_[i].inVersion
                     ? "FeatureDescription of a Version that another Version starts inside: "
                       "the reader drops it"
                     : "FeatureDescription outside any Version: the reader drops it");
        }
        heldAt_.erase(heldAt_.begin(),
                      heldAt_.begin() + static_cast<long>(std::min(count, heldAt_.size())));
    }

    const Place& innermostDescription() const { return open_[descriptions_.back()].start; }

    void checkLetterCase(const char* name, Kind kind, const Place& here) {
        const char* usual = velcan::history::nameOf(kind);
        if (kind != Kind::Other && std::strcmp(name, usual) != 0) {
            warn(here, std::string("element '") + name + "' is read as '" + usual +
                           "' (the letter case differs)");
        }
    }

    // topLevel: not inside another Version, whose own warning says what the reader does.
    void checkVersion(const Place& here, const char** atts, bool topLevel) {
        const char* number = nullptr;
        const char* date = nullptr;
        for (const char** a = atts; *a != nullptr; a += 2) {
            const AttributeKind kind = velcan::history::attributeKindOf(a[0]);
            if (kind == AttributeKind::Other) {
                continue;
            }
            (kind == AttributeKind::Number ? number : date) = a[1]; // the later wins
            if (std::strcmp(a[0], velcan::history::nameOf(kind)) != 0) {
                warn(here, std::string("attribute '") + a[0] + "' is read as '" +
                               velcan::history::nameOf(kind) + "' (the letter case differs)");
            }
        }
        if (number == nullptr) {
            warn(here, "Version without a number: the reader gives it an empty one");
        } else if (isBlank(number)) {
            warn(here, "Version with a blank number: the reader keeps it as it is");
        } else {
            const auto seen = numbers_.find(number);
            if (seen != numbers_.end()) {
                warn(here, std::string("two versions numbered '") + number +
                               "' (the first at line " + std::to_string(seen->second) + ")");
            } else {
                numbers_[number] = here.line;
            }
            checkOrder(here, number, topLevel);
        }
        if (date == nullptr) {
            warn(here, "Version without a date: the reader gives it an empty one");
        } else if (isBlank(date)) {
            warn(here, "Version with a blank date: the reader keeps it as it is");
        }
    }

    // Versions are listed newest first, and each number can be ordered.
    void checkOrder(const Place& here, const char* number, bool topLevel) {
        if (!VelcanIsVersionNumber(number)) {
            warn(here, std::string("number '") + number +
                           "' is not a version number (such as 4.1.0 or 2.0-rc.1): it comes "
                           "before every version, and is never newer than one");
            return;
        }
        if (topLevel && !previousNumber_.empty() &&
            VelcanCompareVersions(number, previousNumber_.c_str()) > 0) {
            warn(here, std::string("version ") + number + " is newer than " + previousNumber_ +
                           " before it (line " + std::to_string(previousLine_) +
                           "): versions are listed newest first");
        }
        previousNumber_ = number;
        previousLine_ = here.line;
    }

    void warn(const Place& at, const std::string& message) {
        findings_.push_back({path_, at.line, at.column, false, message});
    }

    // Where each description the reader holds outside the record started, and whether a
    // Version was open then.
    struct Held {
        Place place;
        bool inVersion;
    };

    TUpdateFileParser& reader_;
    const std::string& path_;
    std::vector<LintFinding>& findings_;
    std::vector<Open> open_;
    std::vector<std::size_t> versions_;     // indexes into open_ of the open Versions
    std::vector<std::size_t> descriptions_; // and of the open FeatureDescriptions
    std::vector<Held> heldAt_;
    Place lastVersion_{1, 1};
    std::map<std::string, int> numbers_;
    std::string previousNumber_; // the last version number, and its line
    int previousLine_ = 0;
};

// "not well-formed (EXPAT'S MESSAGE)", said once: expat's message for an invalid token says it
// already, and an encoding expat cannot read is no fault of the markup.
std::string notWellFormed(expatpp& reader) {
    const XML_Error code = reader.XML_GetErrorCode();
    const std::string message = xmlErrorMessage(reader);
    if (code == XML_ERROR_UNKNOWN_ENCODING || message.rfind("not well-formed", 0) == 0) {
        return message;
    }
    return "not well-formed (" + message + ")";
}

} // namespace

bool lintHistoryFile(const std::string& given, std::vector<LintFinding>* findings,
                     std::string* reason) {
    std::FILE* file = openForReading(given.c_str(), reason);
    if (file == nullptr) {
        return false;
    }
    TUpdateFileParser reader;
    lintWithReader(file, shownName(given), reader, findings);
    std::fclose(file);
    return true;
}

void lintWithReader(std::FILE* file, const std::string& path, TUpdateFileParser& reader,
                    std::vector<LintFinding>* findings) {
    std::vector<LintFinding> found;
    LintReader lint(reader, path, found);
    if (velcan::history::feedAsTheReader(file, lint)) {
        lint.finish();
    } else {
        const XML_Error code = lint.XML_GetErrorCode();
        const std::string what = code == XML_ERROR_NOT_STANDALONE
                                     ? "not standalone (it refers to an external DTD)"
                                     : notWellFormed(lint);
        found.push_back({path, lint.XML_GetCurrentLineNumber(), columnOf(lint), true,
                         what + ": the reader returns an empty history"});
    }
    // In the order of the places they name (a Version stored twice is seen at its end).
    std::stable_sort(found.begin(), found.end(), [](const LintFinding& a, const LintFinding& b) {
        return a.line != b.line ? a.line < b.line : a.column < b.column;
    });
    findings->insert(findings->end(), found.begin(), found.end());
}

std::string formatFinding(const LintFinding& f) {
    return location(f.file, f.line, f.column) + ": " + (f.error ? "error" : "warning") + ": " +
           f.message;
}

std::string findingsAsJson(const std::vector<LintFinding>& findings,
                           const std::vector<UnreadableFile>& unreadable) {
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
    out += "],\"unreadable\":[";
    first = true;
    for (const UnreadableFile& u : unreadable) {
        out += first ? "{" : ",{";
        first = false;
        out += "\"file\":" + jsonString(u.file) + ",\"reason\":" + jsonString(u.reason) + "}";
    }
    return out + "]}";
}
