// The runner's command-line checks and splitting, compared with the process layer's own
// splitting. Nothing is spawned.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <ace/Process.h>

#include "process/command_line.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string line(reinterpret_cast<const char*>(data), size);
    const char* text = line.c_str(); // up to the first NUL, as a caller's string would be
    velcan::CommandLine parsed;
    const int refusal = velcan::parseCommandLine(text, &parsed);
    if (refusal != 0) {
        if (refusal != EINVAL && refusal != E2BIG && refusal != ENOENT) {
            std::abort();
        }
        return 0;
    }
    if (parsed.argumentCount < 1 || parsed.argumentCount > velcan::kMaxArguments ||
        parsed.program == nullptr) {
        std::abort();
    }
    // The process layer, set up as the runner sets it up and given the same line, must make
    // the same words of it.
    ACE_Process_Options options(true, velcan::kCommandLineBuffer, velcan::kEnvironmentBuffer,
                                velcan::kEnvironmentEntries, velcan::kArgumentSlots);
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
    // A format with no arguments, as the runner passes it; it holds no directive but "%%"
    // (refused above otherwise).
    options.command_line(text);
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
    int words = 0;
    ACE_TCHAR* const* argv = options.command_line_argv();
    while (argv[words] != nullptr) {
        if (words == parsed.argumentCount ||
            std::strcmp(argv[words], parsed.arguments[words]) != 0) {
            std::abort();
        }
        ++words;
    }
    if (words != parsed.argumentCount) {
        std::abort();
    }
    return 0;
}
