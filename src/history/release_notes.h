// A version history shown as release notes: plain text, Markdown, HTML or JSON.
#ifndef VELCAN_HISTORY_RELEASE_NOTES_H
#define VELCAN_HISTORY_RELEASE_NOTES_H

#include <memory>
#include <string>

#include <velcan/velcan.h>

enum class NotesFormat { Text, Json, Markdown, Html, HtmlPage };

// Appends a description as every format but JSON shows it: each run of blanks and line breaks
// (space, tab, CR, LF) one space, none at either end.
void appendFolded(std::string& out, const std::string& text);

// Appends text as Markdown shows it, character for character: each character Markdown would
// act on behind a backslash: anywhere, and where text starts a block (a list item's text, not a
// heading's) at its start too. A bidirectional control character (U+061C, U+200E, U+200F,
// U+202A to U+202E, U+2066 to U+2069), which would reorder the text unseen, is marked instead:
// "\[U+202E\]".
void appendMarkdownEscaped(std::string& out, const std::string& text, bool startsABlock);

// Appends text as HTML shows it: & < > " and ' as references, and a bidirectional control
// character marked, "[U+202E]".
void appendHtmlEscaped(std::string& out, const std::string& text);

// appendFolded() and appendHtmlEscaped() in one pass.
void appendFoldedHtmlEscaped(std::string& out, const std::string& text);

// Release notes written a version at a time, so that neither the record nor the whole text
// is copied: begin(), then version() for each version shown, then end().
class NotesWriter {
  public:
    virtual ~NotesWriter() = default;
    virtual std::string begin() const { return std::string(); }
    // Appends the version's notes to out.
    virtual void version(const TUpdateVersion& version, std::string& out) = 0;
    virtual std::string end(const std::string& extraText) const;
};

// The writer of a format. Text: "Version NUMBER (DATE)" and a bullet per description;
// Markdown: a heading per version and a list item per description; HTML: a section per
// version (HtmlPage: a whole page around them); JSON: the record as it is
// ({"format":1,...}, descriptions as read).
std::unique_ptr<NotesWriter> makeNotesWriter(NotesFormat format);

#endif
