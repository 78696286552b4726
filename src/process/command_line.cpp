#include "process/command_line.h"

#include <cerrno>

#include <ace/Tokenizer_T.h>

namespace velcan {

int parseCommandLine(const char* commandLine, CommandLine* out) {
    out->text[0] = '\0';
    out->program = nullptr;
    out->argumentCount = 0;
    if (commandLine == nullptr) {
        return ENOENT;
    }
    // The line is a printf format with no arguments: only "%%" may appear, as "%".
    int length = 0;
    for (const char* p = commandLine; *p != '\0'; ++p) {
        if (*p == '%') {
            if (p[1] != '%') {
                return EINVAL;
            }
            ++p;
        }
        if (length == kMaxCommandLineLength) {
            return E2BIG;
        }
        out->text[length++] = *p;
    }
    out->text[length] = '\0';

    // The same tokenizer, set up the same way, as the process layer's own splitting.
    ACE_Tokenizer_T<char> words(out->text);
    words.delimiter_replace(' ', '\0');
    words.preserve_designators('"', '"');
    words.preserve_designators('\'', '\'');
    for (const char* word = words.next(); word != nullptr; word = words.next()) {
        if (out->argumentCount == kMaxArguments) {
            return E2BIG;
        }
        out->arguments[out->argumentCount++] = word;
    }
    if (out->argumentCount == 0) {
        return ENOENT;
    }
    out->program = out->arguments[0];
    return 0;
}

} // namespace velcan
