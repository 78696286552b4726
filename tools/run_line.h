// Joining the tool's arguments into one command line for the runner.
#ifndef VELCAN_TOOLS_RUN_LINE_H
#define VELCAN_TOOLS_RUN_LINE_H

#include <string>
#include <vector>

// Joins arguments into one command line that the runner splits back into exactly those
// arguments: "%" is doubled, and a word with spaces or quotes is quoted. False, with *problem
// saying which argument, when the runner's command-line form cannot express one.
bool commandLineFromArguments(const std::vector<const char*>& args, std::string* line,
                              std::string* problem);

#endif
