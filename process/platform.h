// What the runner needs from the operating system, one implementation per platform
// (platform_linux.cpp, platform_win32.cpp). Internal.
//
// One error convention: every call that can fail returns 0 on success or the errno value
// that says why it failed. What they leave in errno means nothing: LaunchBlockingProcess
// alone decides what errno holds when it returns.
#ifndef VELCAN_PROCESS_PLATFORM_H
#define VELCAN_PROCESS_PLATFORM_H

#include <cstddef>
#include <memory>
#if defined(_WIN32)
#include <mutex>
#endif

#include "process/handle.h"

namespace velcan {
namespace platform {

// An anonymous pipe whose ends no child inherits.
struct Pipe {
    Handle readEnd;
    Handle writeEnd;
};
int createPipe(Pipe* pipe);

// Reads at most size bytes into buffer and stores the count (0 at the end of the output) in
// *count. An interrupted read is retried.
int readPipe(ACE_HANDLE handle, char* buffer, size_t size, size_t* count);

// One child process: started, confirmed, waited for. What only one platform needs (the
// process options and their lifetime, the null device, how a failed start is reported)
// stays inside that platform's file.
class Child {
  public:
    Child();
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Starts the command line's program (looked up as the platform does) with the null
    // device as its standard input and `output` as its standard output and error. 0 once a
    // child exists; otherwise none does and the value says why.
    int start(const char* commandLine, ACE_HANDLE output);

    // Whether the child runs the program: 0, or why it could not (ENOENT, EACCES, ...), in
    // which case the child has been waited for. Blocks until the first output on `readEnd`
    // or its end, which come after the child has run the program or given up.
    int confirmStart(ACE_HANDLE readEnd);

    // Releases what only the start needed (the process options, the null device): 0, or the
    // errno value of a close that failed.
    int releaseStart();

    // Waits, with no time limit, for the child to end, and stores its exit code in
    // *exitCode (128 + the signal number for a child a signal ended).
    int wait(int* exitCode);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

#if !defined(_WIN32)
// Moves a descriptor that landed on 0, 1 or 2 (the caller has them closed) above 2, so it
// cannot be mistaken for one of a child's standard handles, keeping close-on-exec. Returns the
// descriptor, or -1 with errno set (the one given is closed then).
int aboveStandardHandles(int fd);
#endif

#if defined(_WIN32)
// Children start with inheritable copies of their handles and with handle inheritance on, so a
// child spawned while another run's copies exist could inherit them and hold that run's pipe
// open. The library's spawns take turns from making the copies until they are closed.
std::mutex& spawnTurn();

// The errno value for a Windows error code: 3, 8, 32 and 80 become ENOENT, ENOMEM, EACCES
// and EEXIST; any other code is kept as it is.
int errnoFromWindowsError(unsigned long code);
#endif

} // namespace platform
} // namespace velcan

#endif
