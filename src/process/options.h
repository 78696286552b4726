// The process options the runner gives ACE. Internal.
#ifndef VELCAN_PROCESS_OPTIONS_H
#define VELCAN_PROCESS_OPTIONS_H

#include <memory>

#include <ace/Process.h>

namespace velcan {

// Options that inherit the caller's environment, with the sizes of command_line.h, and the
// command line set. commandLine must have passed parseCommandLine: it is a printf format
// with no arguments, holding no directive but "%%".
std::unique_ptr<ACE_Process_Options> makeProcessOptions(const char* commandLine);

} // namespace velcan

#endif
