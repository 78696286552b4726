// The runner's command-line checks and splitting, compared with the process layer's own
// splitting of the same line, set up by the runner's own options code. Nothing is spawned.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <ace/Process.h>

#include "process/command_line.h"
#include "process/options.h"

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
    // The process layer, given the line by the runner's own options code, must make the same
    // words of it. (The line holds no directive but "%%": refused above otherwise.)
    const std::unique_ptr<ACE_Process_Options> options = velcan::makeProcessOptions(text);
    int words = 0;
    ACE_TCHAR* const* argv = options->command_line_argv();
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
