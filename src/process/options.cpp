#include "process/options.h"

#include "process/command_line.h"

namespace velcan {

std::unique_ptr<ACE_Process_Options> makeProcessOptions(const char* commandLine) {
    std::unique_ptr<ACE_Process_Options> options(new ACE_Process_Options(
        true, kCommandLineBuffer, kEnvironmentBuffer, kEnvironmentEntries, kArgumentSlots));
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
    options->command_line(commandLine);
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
    return options;
}

} // namespace velcan
