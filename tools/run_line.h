// Joining the tool's arguments into one command line for the runner.
#ifndef VELCAN_TOOLS_RUN_LINE_H
#define VELCAN_TOOLS_RUN_LINE_H

#include <string>
#include <vector>

// Joins arguments into one command line that the runner splits back into exactly those
// arguments: "%" is doubled, and a word with spaces or quotes is quoted. False, with *problem
// saying which argument or which limit, when the runner's command-line form cannot express one
// or the line is over the runner's limits.
bool commandLineFromArguments(const std::vector<const char*>& args, std::string* line,
                              std::string* problem);

// Why an argument cannot be handed safely to a batch file (PROGRAM ends in .bat or .cmd, in
// any letter case): on Windows cmd reads a batch file's command line as its own, so a
// character it gives a meaning to (% ^ & | < > ( ) ! " or a line break) could make it run
// something else. Empty when every argument is safe, or the program is no batch file.
std::string batchFileArgumentProblem(const std::vector<const char*>& args);

// The arguments as a user would type them in a POSIX shell, for messages: a word with a space
// or a character the shell treats specially is single-quoted.
std::string argumentsAsTyped(const std::vector<const char*>& args);

#endif
