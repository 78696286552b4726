// How the velcan tool ends and what it says when something goes wrong.
#ifndef VELCAN_TOOLS_REPORT_H
#define VELCAN_TOOLS_REPORT_H

#include <cstdio>
#include <string>
#include <vector>

#include <velcan/velcan.h>

// Exit statuses shared by every command (a command that runs another passes its code on).
const int kExitFailure = 1;
const int kExitUsage = 2;

// Prints "velcan: MESSAGE" on stderr, one line.
void reportError(const std::string& message);

// "FILE:LINE:COLUMN" (1-based): how every command names a place in a file.
std::string location(const std::string& file, int line, int column);

// The column (1-based) where reader's parser is: of the current event, or after an error the
// error's.
int columnOf(expatpp& reader);

// location() of where reader's parser is in `file`.
std::string locationOf(const std::string& file, expatpp& reader);

// expat's message for the reader's error: for an encoding it cannot read, with the ones it
// can; for bytes that are not UTF-8 where it reads UTF-8, with how to declare another.
std::string xmlErrorMessage(expatpp& reader);

// Reports a usage error, with a pointer to --help, and returns kExitUsage.
int usageError(const std::string& message);

// Whether an argument is an option ("-x", "--x"; a lone "-" is not).
bool isOption(const char* arg);

// Splits a command's arguments into the options it knows and its operands: "--" ends the
// options, and "-" is an operand. Each of `known` is a flag ("--json"), or ends in "=" for an
// option with a value, given as "--since=VALUE" or "--since VALUE" and kept as the former. An
// unknown option, or one with its value missing, is a usage error, reported; *status then holds
// kExitUsage and false is returned.
bool splitArguments(const char* command, const std::vector<const char*>& args,
                    const std::vector<std::string>& known, std::vector<std::string>* options,
                    std::vector<const char*>* operands, int* status);

// Flushes stdout and tells whether everything written to it arrived; on failure (a full disk,
// a closed pipe) says so on stderr in one line and returns false.
bool finishOutput();

// Writes text to stdout, then finishOutput().
bool writeOut(const std::string& text);

#endif
