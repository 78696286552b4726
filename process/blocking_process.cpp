#include "process/blocking_process.h"

#include <cerrno>
#include <memory>

#include "process/command_line.h"
#include "process/platform.h"

IBlockingProcessObserver::~IBlockingProcessObserver() = default;

namespace {

const int kNotRun = 127;

// The process layer's sizes: command-line buffer, environment buffer, environment entries,
// command-line arguments.
const size_t kCommandLineBuffer = 1024;
const size_t kEnvironmentBuffer = 16384;
const size_t kEnvironmentEntries = 512;
const size_t kArgumentSlots = 128;

// Passes everything the child writes to the observer, as each read returns.
void relayOutput(ACE_HANDLE readEnd, IBlockingProcessObserver* observer) {
    // Kept between calls: an observer is expected to store both every time.
    char* buffer = nullptr;
    int capacity = 0;
    for (;;) {
        observer->GetOutputBuffer(&buffer, &capacity);
        const ptrdiff_t n =
            velcan::platform::readPipe(readEnd, buffer, static_cast<unsigned int>(capacity - 1));
        if (n <= 0) {
            return;
        }
        buffer[n] = '\0';
        observer->OutputReceived(static_cast<int>(n));
    }
}

} // namespace

int LaunchBlockingProcess(const char* commandLine, IBlockingProcessObserver* observer) {
    namespace platform = velcan::platform;
    int result = kNotRun;

    // Refuse what the process layer would run in another form, or could not start.
    velcan::CommandLine parsed;
    int refusal = velcan::parseCommandLine(commandLine, &parsed);
    if (refusal == 0) {
        refusal = platform::checkProgram(parsed.program);
    }
    if (refusal != 0) {
        errno = refusal;
        return kNotRun;
    }

    ACE_HANDLE pipe[2];
    if (platform::createPipe(pipe) != 0) {
        return kNotRun;
    }
    const ACE_HANDLE readEnd = pipe[0];
    {
        platform::ChildProcess process;
        {
            platform::SpawnGuard guard;
            std::unique_ptr<ACE_Process_Options> options(new ACE_Process_Options(
                true, kCommandLineBuffer, kEnvironmentBuffer, kEnvironmentEntries, kArgumentSlots));
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
            // A format with no arguments; it holds no directive but "%%" (checked above).
            options->command_line(commandLine);
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
            const ACE_HANDLE nullDevice = platform::openNullDevice();
            platform::setHandles(*options, nullDevice, pipe[1]);
            // From here only the options' copies, then the child's, hold the write end.
            platform::closeHandle(nullDevice);
            platform::closeHandle(pipe[1]);
            platform::hideWindow(*options);
            process.spawn(*options);
            // Releasing the options closes their copies, so the end of output can be seen.
        }
        // No process came into being: nothing to read or wait for (and a wait for -1 would
        // reap any child of the application).
        if (platform::spawned(process)) {
            if (observer != nullptr) {
                relayOutput(readEnd, observer);
            }
            int exitCode = 0;
            if (platform::waitForExit(process, &exitCode)) {
                result = exitCode;
            }
        }
    }
    platform::closeHandle(readEnd);
    return result;
}
