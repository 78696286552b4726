// What to tell a user when a command could not be started, where the system's code misleads.
#ifndef VELCAN_TOOLS_START_FAILURE_H
#define VELCAN_TOOLS_START_FAILURE_H

#include <string>

// Why `program` could not be started, given the errno the runner left: "No such file or
// directory" becomes "its interpreter /x was not found" for a script whose "#!" line names a
// missing program; "Permission denied" becomes "it is a directory" or "the file is not
// executable" where that is what happened. Otherwise the system's own text.
std::string whyNotStarted(const char* program, int error);

#endif
