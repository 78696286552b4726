// Checking a command line before the runner hands it to the process layer. Internal.
#ifndef VELCAN_PROCESS_COMMAND_LINE_H
#define VELCAN_PROCESS_COMMAND_LINE_H

namespace velcan {

// The sizes the runner gives the process layer (ACE_Process_Options), defined here once:
// a command-line buffer of 1024 characters, an environment buffer of 16384 bytes, 512
// environment entries and 128 command-line argument slots.
const int kCommandLineBuffer = 1024;
const int kEnvironmentBuffer = 16384;
const int kEnvironmentEntries = 512;
const int kArgumentSlots = 128;

// What those allow: 1023 characters (the buffer holds the NUL) and 127 words (the argument
// list ends with a null).
const int kMaxCommandLineLength = kCommandLineBuffer - 1;
const int kMaxArguments = kArgumentSlots - 1;

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
