// Pipes between the runner and a child, and what else a child's standard handle can be.
// Internal; one file per system behind it (pipe_posix.cpp, pipe_win32.cpp).
//
// Every call that can fail returns 0 or why: an errno value where it says so, otherwise the
// system's own code (errno's value on POSIX systems, GetLastError's on Windows).
#ifndef VELCAN_PROCESS_PIPE_H
#define VELCAN_PROCESS_PIPE_H

#include <cstddef>
#include <memory>
#include <string>

#include "process/handle.h"

namespace velcan {
namespace sys {

// An anonymous pipe whose ends no child inherits (on POSIX systems close-on-exec and above
// 0-2), read by blocking reads. 0 or the errno value.
struct Pipe {
    Handle readEnd;
    Handle writeEnd;
};
int makePipe(Pipe* pipe);

// Reads at most size bytes, waiting for them, and stores the count (0 at the end of the output)
// in *count. An interrupted read is retried. 0 or the errno value.
int readPipe(Native handle, char* buffer, std::size_t size, std::size_t* count);

// A child's standard handle, made for it: inheritable on Windows; on POSIX systems above 0-2 and
// close-on-exec, the spawn giving the child its own copy. 0 or the system's code.
long openNullDevice(bool forWriting, Handle* handle);
long openInputFile(const std::string& path, Handle* handle);
// A copy of the caller's standard input (0), output (1) or error (2) for a child, or the null
// device where the caller has none.
long duplicateStandardHandle(int which, Handle* handle);

// What a transfer on a Channel came to.
enum class Io {
    Done,    // *count bytes were moved
    Pending, // under way: the buffer stays in use until complete() or close()
    Ended,   // the pipe's end, or a failure (its code in *error)
};

// One way of a pipe between a run and its child, that the run never blocks on: a transfer that
// cannot be done at once is Pending, and the channel's waitable (watched by a WaitSet) fires
// when complete() can finish it.
class Channel {
  public:
    Channel();
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    // Makes the pipe, the run's end here and the child's in *childEnd. 0 or the system's code.
    long open(bool fromChild, Handle* childEnd);
    bool isOpen() const;
    bool fromChild() const;
    bool isPending() const;
    Native waitable() const;

    // Reads at most size bytes into buffer, or writes size bytes from bytes. A child that
    // closed its end makes a write Ended, never a signal.
    Io read(char* buffer, std::size_t size, std::size_t* count, long* error);
    Io write(const char* bytes, std::size_t size, std::size_t* count);
    // Once the waitable fired: finishes the pending transfer, with the same outcomes.
    Io complete(std::size_t* count, long* error);

    // Closes the run's end; a pending transfer is cancelled first, so nothing is written to
    // its buffer afterwards.
    void close();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

// The errno value for a system's code (the same on POSIX systems).
int errnoOf(long systemError);

} // namespace sys
} // namespace velcan

#endif
