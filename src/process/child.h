// The child of a VelcanCommand run and everything it starts: started in a group (POSIX) or job
// (Windows) of its own, ended as a whole, reaped. Internal; one file per system behind it
// (child_posix.cpp, child_win32.cpp).
#ifndef VELCAN_PROCESS_CHILD_H
#define VELCAN_PROCESS_CHILD_H

#include <memory>
#include <string>
#include <vector>

#include "process/command_state.h"
#include "process/handle.h"

namespace velcan {
namespace sys {

// The child's standard input, output and error; no error handle: errors go with the output.
struct StandardHandles {
    Handle input;
    Handle output;
    Handle errors;
};

class Child {
  public:
    Child();
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Starts the command (argv: the words checkCommand gave) with these handles, in its
    // directory and environment. True once the child runs; otherwise *notStarted says why
    // (Refused, ProgramNotStarted, SetupFailed). Closes the handles either way.
    bool start(const VelcanCommandState& command, const std::vector<std::string>& argv,
               StandardHandles* handles, VelcanRunResult* notStarted);

    // Ready once the child has ended; kNone where the system gives nothing to wait on, and the
    // run asks hasEnded() now and then.
    Native endWaitable() const;
    bool hasEnded();

    // Ends the child and everything it started: gently (the command's end signal, SIGTERM by
    // default, then SIGCONT) or not (SIGKILL). True when
    // nothing more can be done to them (Windows terminates the job at once either way).
    bool endTree(bool gently);

    // Waits for the child to end and says how it ended (Exited or Signaled, and its code), or
    // why that is not known (error).
    VelcanRunResult reap();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace sys
} // namespace velcan

#endif
