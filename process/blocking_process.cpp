#include "velcan/process/blocking_process.h"

#include <cerrno>

#include "process/command_line.h"
#include "process/platform.h"

IBlockingProcessObserver::~IBlockingProcessObserver() = default;

namespace {

const int kNotRun = 127;

int notRun(int error) {
    errno = error;
    return kNotRun;
}

// Keeps the first failure of a run for errno.
void keep(int* error, int failure) {
    if (*error == 0) {
        *error = failure;
    }
}

// Passes everything the child writes to the observer, as each read returns. Returns 0, or
// the error of a read that failed (which also ends the reading).
// Without an observer nothing is read.
int relayOutput(ACE_HANDLE readEnd, IBlockingProcessObserver* observer) {
    if (observer == nullptr) {
        return 0;
    }
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

} // namespace

int LaunchBlockingProcess(const char* commandLine, IBlockingProcessObserver* observer) {
    namespace platform = velcan::platform;
    // errno is left as the caller set it unless something fails.
    const int callersErrno = errno;

    // Refuse what the process layer would run in another form.
    velcan::CommandLine checked;
    if (int refusal = velcan::parseCommandLine(commandLine, &checked)) {
        return notRun(refusal);
    }
    platform::Pipe pipe;
    if (int failure = platform::createPipe(&pipe)) {
        return notRun(failure);
    }
    platform::Child child;
    if (int failure = child.start(commandLine, pipe.writeEnd.get())) {
        return notRun(failure);
    }
    // From here only the child holds the write end, so the end of its output can be seen.
    int error = pipe.writeEnd.close();
    // Before the first GetOutputBuffer, so a child that could not start gets none. Without
    // an observer the output is never read, and the start is confirmed once the child ends.
    if (int failure =
            child.confirmStart(observer != nullptr ? pipe.readEnd.get() : ACE_INVALID_HANDLE)) {
        return notRun(failure);
    }
    keep(&error, child.releaseStart());
    keep(&error, relayOutput(pipe.readEnd.get(), observer));
    int exitCode = kNotRun;
    keep(&error, child.wait(&exitCode));
    keep(&error, pipe.readEnd.close());
    errno = error != 0 ? error : callersErrno;
    return exitCode;
}
