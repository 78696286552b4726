// What the runner needs from the operating system, one implementation per platform
// (platform_linux.cpp, platform_win32.cpp). Internal.
//
// One error convention: every call that can fail returns 0 on success or the errno value
// that says why it failed. What they leave in errno means nothing: LaunchBlockingProcess
// alone decides what errno holds when it returns.
#ifndef VELCAN_PROCESS_PLATFORM_H
#define VELCAN_PROCESS_PLATFORM_H

#include <cstddef>

#include <ace/Process.h>

namespace velcan {
namespace platform {

// The process object: ACE's, with what the platform does in the child before it runs the
// program. Filled in by startChild.
class ChildProcess : public ACE_Process {
  public:
    ACE_Process_Options* options = nullptr;
    ACE_HANDLE input = ACE_INVALID_HANDLE;
    ACE_HANDLE output = ACE_INVALID_HANDLE;
    ACE_HANDLE status = ACE_INVALID_HANDLE; // how the child reports a failed start
    const char* program = nullptr;
    char* const* argv = nullptr;

  protected:
    void child(pid_t parent) override;
};

// An anonymous pipe whose ends no child inherits.
int createPipe(ACE_HANDLE ends[2]);

// The null device, opened read-only and not inherited.
int openNullDevice(ACE_HANDLE* handle);

// Starts the program the options describe (looked up as the platform does), its standard
// input from `input` and its standard output and error both to `output`. 0 once the program
// is running; otherwise no process remains and the value says why it could not be started
// (ENOENT, EACCES, ...), whether that was found before the child existed or when it tried to
// run the program.
int startChild(ChildProcess& process, ACE_Process_Options& options, ACE_HANDLE input,
               ACE_HANDLE output);

// After startChild: whether the child started the program (0) or why it could not. Blocks
// until the child has run the program or ended; with a read end given, until the first
// output or its end, which come after either. A child that could not start has ended by
// itself and must still be waited for.
int startOutcome(ChildProcess& process, ACE_HANDLE readEnd);

// Reads at most size bytes into buffer and stores the count (0 at the end of the output) in
// *count. An interrupted read is retried.
int readPipe(ACE_HANDLE handle, char* buffer, size_t size, size_t* count);

// Closes a handle (an invalid one is left alone).
int closeHandle(ACE_HANDLE handle);

// Waits, with no time limit, for the child to end, and stores its exit code in *exitCode
// (128 + the signal number for a child a signal ended).
int waitForExit(ACE_Process& process, int* exitCode);

#if defined(_WIN32)
// The errno value for a Windows error code: 3, 8, 32 and 80 become ENOENT, ENOMEM, EACCES
// and EEXIST; any other code is kept as it is.
int errnoFromWindowsError(unsigned long code);
#endif

} // namespace platform
} // namespace velcan

#endif
