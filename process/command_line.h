// Checking a command line before the runner hands it to the process layer. Internal.
#ifndef VELCAN_PROCESS_COMMAND_LINE_H
#define VELCAN_PROCESS_COMMAND_LINE_H

namespace velcan {

// The process layer's limits: a 1024-character buffer (with its NUL) and 128 argument slots
// (with the terminating null).
const int kMaxCommandLineLength = 1023;
const int kMaxArguments = 127;

// A command line as the process layer will see it.
struct CommandLine {
    // The text after each "%%" is folded to "%", then split in place: arguments are
    // NUL-separated within it.
    char text[kMaxCommandLineLength + 1];
    // The first word (the program), pointing into text; null when there is none.
    const char* program;
    // The number of words.
    int argumentCount;
    // Each word, pointing into text, as the program will receive it.
    const char* arguments[kMaxArguments];
};

// Folds "%%" to "%" and splits the result the way the process layer does: at spaces, with
// text between a pair of double or single quotes kept as one word. Returns 0, or the errno
// value that refuses the line: EINVAL for a percent sign that is not half of "%%", E2BIG for
// a line too long or with too many arguments, ENOENT for an empty or blank line or a null
// pointer. Does not look for the program.
int parseCommandLine(const char* commandLine, CommandLine* out);

} // namespace velcan

#endif
