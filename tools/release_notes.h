// A version history shown as release notes: plain text, Markdown, HTML or JSON.
#ifndef VELCAN_TOOLS_RELEASE_NOTES_H
#define VELCAN_TOOLS_RELEASE_NOTES_H

#include <string>

#include <velcan/velcan.h>

enum class NotesFormat { Text, Json, Markdown, Html, HtmlPage };

// A description as every format but JSON shows it: each run of blanks and line breaks (space,
// tab, CR, LF) one space, none at either end.
std::string foldedWhitespace(const std::string& text);

// text as Markdown shows it, character for character: each character Markdown would act on
// behind a backslash: anywhere, and where text starts a block (a list item's text, not a
// heading's) at its start too.
std::string markdownEscaped(const std::string& text, bool startsABlock);

// text as HTML shows it: & < > " and ' as references.
std::string htmlEscaped(const std::string& text);

// The versions of info in `format`: text, a heading and a list item per description in
// Markdown, a fragment of sections in HTML (HtmlPage: a whole page around it), and in JSON the
// record as it is ({"format":1,...}, descriptions unfolded).
std::string releaseNotes(const TUpdateVersionInfo& info, NotesFormat format);

#endif
