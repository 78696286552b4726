#include "velcan/process/blocking_process.h"

#include <cerrno>
#include <memory>

#include "process/command_line.h"
#include "process/platform.h"

IBlockingProcessObserver::~IBlockingProcessObserver() = default;

namespace {

const int kNotRun = 127;

// Passes everything the child writes to the observer, as each read returns. Returns 0, or
// the error of a read that failed (which also ends the reading).
int relayOutput(ACE_HANDLE readEnd, IBlockingProcessObserver* observer) {
    // Kept between calls: an observer is expected to store both every time.
    char* buffer = nullptr;
    int capacity = 0;
    for (;;) {
        observer->GetOutputBuffer(&buffer, &capacity);
        // Room for the NUL alone (or less, or no buffer at all): nothing can be read into
        // it, so the reading ends, and nothing is ever written where the observer did not
        // say.
        if (buffer == nullptr || capacity <= 1) {
            return 0;
        }
        size_t n = 0;
        const int error =
            velcan::platform::readPipe(readEnd, buffer, static_cast<size_t>(capacity) - 1, &n);
        if (error != 0 || n == 0) {
            return error;
        }
        buffer[n] = '\0';
        observer->OutputReceived(static_cast<int>(n));
    }
}

// Closes a handle of the runner's own, once; a failure is kept for errno.
void closeOwn(ACE_HANDLE* handle, int* error) {
    if (int failure = velcan::platform::closeHandle(*handle)) {
        *error = failure;
    }
    *handle = ACE_INVALID_HANDLE;
}

} // namespace

int LaunchBlockingProcess(const char* commandLine, IBlockingProcessObserver* observer) {
    namespace platform = velcan::platform;
    // What errno is left holding: the caller's own value unless something failed.
    int error = errno;
    int result = kNotRun;

    // Refuse what the process layer would run in another form.
    velcan::CommandLine parsed;
    if (int refusal = velcan::parseCommandLine(commandLine, &parsed)) {
        errno = refusal;
        return kNotRun;
    }

    ACE_HANDLE pipe[2];
    if (int failure = platform::createPipe(pipe)) {
        errno = failure;
        return kNotRun;
    }
    const ACE_HANDLE readEnd = pipe[0];
    ACE_HANDLE writeEnd = pipe[1];
    int startError = 0;
    {
        platform::ChildProcess process;
        std::unique_ptr<ACE_Process_Options> options(
            new ACE_Process_Options(true, velcan::kCommandLineBuffer, velcan::kEnvironmentBuffer,
                                    velcan::kEnvironmentEntries, velcan::kArgumentSlots));
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
        ACE_HANDLE nullDevice = ACE_INVALID_HANDLE;
        startError = platform::openNullDevice(&nullDevice);
        if (startError == 0) {
            startError = platform::startChild(process, *options, nullDevice, writeEnd);
        }
        // From here only the child holds the write end, so the end of its output can be seen.
        closeOwn(&writeEnd, &error);
        // The options (whose copies of the handles, if any, were made for the child and are
        // gone with it) and the null device are released once the child has run the program
        // or ended: until then this process's writes to memory it still shares with the
        // child would be copied on the child's way to its exec.
        const auto releaseStartHandles = [&] {
            options.reset();
            closeOwn(&nullDevice, &error);
        };
        if (startError == 0) {
            if (observer != nullptr) {
                // Before the first GetOutputBuffer: a child that could not start gets none.
                startError = platform::startOutcome(process, readEnd);
                releaseStartHandles();
                if (startError == 0) {
                    if (int failure = relayOutput(readEnd, observer)) {
                        error = failure;
                    }
                }
            }
            int exitCode = 0;
            const int waitError = platform::waitForExit(process, &exitCode);
            if (startError == 0) {
                // With no observer, asked once the child has ended.
                startError = platform::startOutcome(process, ACE_INVALID_HANDLE);
            }
            if (startError == 0) {
                if (waitError != 0) {
                    error = waitError;
                } else {
                    result = exitCode;
                }
            }
        }
        // Without an observer (or when nothing started): here, after the wait.
        releaseStartHandles();
    }
    closeOwn(&pipe[0], &error);
    errno = startError != 0 ? startError : error;
    return result;
}
