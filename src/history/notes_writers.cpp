// One writer per release-notes format.
#include "history/json.h"
#include "history/release_notes.h"

namespace {

// Appends a version's heading: its number (or "(no number)") and its date in brackets, if any.
void appendHeading(std::string& out, const TUpdateVersion& version) {
    out += version.number.empty() ? "(no number)" : version.number;
    if (!version.date.empty()) {
        out += " (";
        out += version.date;
        out += ')';
    }
}

class TextNotes : public NotesWriter {
  public:
    void version(const TUpdateVersion& version, std::string& out) override {
        out += "Version ";
        appendHeading(out, version);
        out += '\n';
        for (const std::string& description : version.featureDescriptions) {
            out += "  - ";
            appendFolded(out, description);
            out += '\n';
        }
    }
};

class MarkdownNotes : public NotesWriter {
  public:
    void version(const TUpdateVersion& version, std::string& out) override {
        out += first_ ? "## " : "\n## ";
        first_ = false;
        text_.clear();
        appendHeading(text_, version);
        appendMarkdownEscaped(out, text_, false);
        out += version.featureDescriptions.empty() ? "\n" : "\n\n";
        for (const std::string& description : version.featureDescriptions) {
            text_.clear();
            appendFolded(text_, description);
            out += text_.empty() ? "-" : "- ";
            appendMarkdownEscaped(out, text_, true);
            out += '\n';
        }
    }

  private:
    bool first_ = true;
    std::string text_; // reused, so that a version costs no allocation of its own
};

class HtmlNotes : public NotesWriter {
  public:
    explicit HtmlNotes(bool page) : page_(page) {}
    std::string begin() const override {
        return page_ ? "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                       "<title>Release notes</title>\n</head>\n<body>\n"
                     : std::string();
    }
    void version(const TUpdateVersion& version, std::string& out) override {
        out += "<section class=\"version\">\n<h2>";
        heading_.clear();
        appendHeading(heading_, version);
        appendHtmlEscaped(out, heading_);
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
    }
    std::string end(const std::string&) const override {
        return page_ ? "</body>\n</html>\n" : std::string();
    }

  private:
    bool page_;
    std::string heading_;
};

class JsonNotes : public NotesWriter {
  public:
    std::string begin() const override { return "{\"format\":1,\"versions\":["; }
    void version(const TUpdateVersion& version, std::string& out) override {
        out += first_ ? "{" : ",{";
        first_ = false;
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
    }
    std::string end(const std::string& extraText) const override {
        return "],\"extraText\":" + jsonString(extraText) + "}\n";
    }

  private:
    bool first_ = true;
};

} // namespace

std::string NotesWriter::end(const std::string&) const {
    return std::string();
}

std::unique_ptr<NotesWriter> makeNotesWriter(NotesFormat format) {
    switch (format) {
    case NotesFormat::Markdown:
        return std::unique_ptr<NotesWriter>(new MarkdownNotes);
    case NotesFormat::Html:
    case NotesFormat::HtmlPage:
        return std::unique_ptr<NotesWriter>(new HtmlNotes(format == NotesFormat::HtmlPage));
    case NotesFormat::Json:
        return std::unique_ptr<NotesWriter>(new JsonNotes);
    case NotesFormat::Text:
        break;
    }
    return std::unique_ptr<NotesWriter>(new TextNotes);
}
