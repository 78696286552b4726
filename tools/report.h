// How the velcan tool ends and what it says when something goes wrong.
#ifndef VELCAN_TOOLS_REPORT_H
#define VELCAN_TOOLS_REPORT_H

#include <cstdio>
#include <string>

// Exit statuses shared by every command (a command that runs another passes its code on).
const int kExitFailure = 1;
const int kExitUsage = 2;

// Prints "velcan: MESSAGE" on stderr, one line.
void reportError(const std::string& message);

// Reports a usage error, with a pointer to --help, and returns kExitUsage.
int usageError(const std::string& message);

// Whether an argument is an option ("-x", "--x"; a lone "-" is not).
bool isOption(const char* arg);

// Writes text to stdout and flushes it; on failure (a full disk, a closed pipe) says so on
// stderr in one line and returns false.
bool writeOut(const std::string& text);

#endif
