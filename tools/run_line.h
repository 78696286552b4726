// Showing a command's arguments in messages.
#ifndef VELCAN_TOOLS_RUN_LINE_H
#define VELCAN_TOOLS_RUN_LINE_H

#include <string>
#include <vector>

// The arguments as a user would type them in a POSIX shell, for messages: a word with a space
// or a character the shell treats specially is single-quoted.
std::string argumentsAsTyped(const std::vector<const char*>& args);

#endif
