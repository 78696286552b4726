// The child of LaunchBlockingProcess, started through ACE's process layer. Internal; one file
// per system behind it (ace_child_posix.cpp, ace_child_win32.cpp).
//
// Every call that can fail returns 0 or the errno value that says why; what is left in errno
// means nothing: LaunchBlockingProcess alone decides what errno holds when it returns.
#ifndef VELCAN_PROCESS_ACE_CHILD_H
#define VELCAN_PROCESS_ACE_CHILD_H

#include <memory>

#include "process/handle.h"

namespace velcan {
namespace sys {

class AceChild {
  public:
    AceChild();
    ~AceChild();
    AceChild(const AceChild&) = delete;
    AceChild& operator=(const AceChild&) = delete;

    // Starts the command line's program (looked up as the system does) with the null device as
    // its standard input and `output` as its standard output and error. 0 once a child exists;
    // otherwise none does and the value says why.
    int start(const char* commandLine, Native output);

    // Whether the child runs the program: 0, or why it could not (ENOENT, EACCES, ...), in which
    // case the child has been waited for. Blocks until the first output on `readEnd` (or its
    // end), which comes after the child has run the program or given up; with no `readEnd`,
    // until the child has ended.
    int confirmStart(Native readEnd);

    // Releases what only the start needed (the process options, the null device): 0, or the
    // errno value of a close that failed.
    int releaseStart();

    // Waits, with no time limit, for the child to end (ACE_Process::wait), and stores its exit
    // code in *exitCode (on POSIX systems 128 + the signal's number for a child a signal ended).
    int wait(int* exitCode);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace sys
} // namespace velcan

#endif
