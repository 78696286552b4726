// The velcan tool's subcommands. Each returns the process's exit status.
#ifndef VELCAN_TOOLS_COMMANDS_H
#define VELCAN_TOOLS_COMMANDS_H

#include <cstdio>
#include <string>
#include <vector>

class expatpp;

// Exit statuses shared by every subcommand.
const int kExitFailure = 1;
const int kExitUsage = 2;

int historyCommand(const char* path, bool json);
int eventsCommand(const char* path);
int runCommand(const std::string& commandLine);

// Joins arguments into one command line for the runner that gives each back literally: "%"
// is doubled, and a word with spaces or quotes is quoted. False, with *problem saying which
// argument, when the runner's command-line form cannot express one.
bool commandLineFromArguments(const std::vector<const char*>& args, std::string* line,
                              std::string* problem);

// Prints "velcan: MESSAGE" on stderr.
void reportError(const std::string& message);

// Checks that path names a readable regular file; otherwise reports
// "cannot open PATH: REASON" and returns false.
bool checkReadable(const char* path);

// Feeds the file through a plain expatpp in 1024-byte pieces, as the history reader does.
// On an XML error, reports "PATH:LINE: MESSAGE" and returns false.
bool checkWellFormed(const char* path);

#endif
