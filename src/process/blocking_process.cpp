#include "velcan/process/blocking_process.h"

#include <cerrno>

#include "process/ace_child.h"
#include "process/command_line.h"
#include "process/pipe.h"
#include "process/relay.h"

IBlockingProcessObserver::~IBlockingProcessObserver() = default;

namespace {

const int kNotRun = 127;

// Keeps the first failure of a run for errno.
void keep(int* error, int failure) {
    if (*error == 0) {
        *error = failure;
    }
}

// Passes everything the child writes to the observer, as each read returns. Returns 0, or the
// error of a read that failed (which also ends the reading). Without an observer nothing is
// read.
int relayOutput(velcan::sys::Native readEnd, IBlockingProcessObserver* observer) {
    if (observer == nullptr) {
        return 0;
    }
    velcan::Relay relay(observer);
    while (relay.askForRoom()) {
        std::size_t n = 0;
        const int error = velcan::sys::readPipe(readEnd, relay.room(), relay.roomSize(), &n);
        if (error != 0 || n == 0) {
            return error;
        }
        relay.deliver(n);
    }
    return 0;
}

// The run itself, in the order it happens: check, pipe, start, confirm, relay, wait, release.
// Returns the child's exit code, or kNotRun; *error gets the failure that decides errno (0 when
// there was none).
int runChild(const char* commandLine, IBlockingProcessObserver* observer, int* error) {
    namespace sys = velcan::sys;
    // Refuse what the process layer would run in another form.
    velcan::CommandLine checked;
    if ((*error = velcan::parseCommandLine(commandLine, &checked)) != 0) {
        return kNotRun;
    }
    sys::Pipe pipe;
    if ((*error = sys::makePipe(&pipe)) != 0) {
        return kNotRun;
    }
    sys::AceChild child;
    if ((*error = child.start(commandLine, pipe.writeEnd.get())) != 0) {
        return kNotRun;
    }
    // From here only the child holds the write end, so the end of its output can be seen.
    *error = pipe.writeEnd.close();
    // Before the first GetOutputBuffer, so a child that could not start gets none. Without an
    // observer the output is never read, and the start is confirmed once the child ends.
    if (int failure = child.confirmStart(observer != nullptr ? pipe.readEnd.get() : sys::kNone)) {
        *error = failure;
        return kNotRun;
    }
    keep(error, child.releaseStart());
    keep(error, relayOutput(pipe.readEnd.get(), observer));
    int exitCode = kNotRun;
    keep(error, child.wait(&exitCode));
    keep(error, pipe.readEnd.close());
    return exitCode;
}

} // namespace

int LaunchBlockingProcess(const char* commandLine, IBlockingProcessObserver* observer) {
    const int callersErrno = errno;
    int error = 0;
    const int code = runChild(commandLine, observer, &error);
    // Set once everything the run made is released, which may touch errno on its way.
    errno = error != 0 ? error : callersErrno;
    return code;
}
