// What the runner needs from the operating system, one implementation per platform
// (platform_posix.cpp, platform_win32.cpp). Internal.
#ifndef VELCAN_PROCESS_PLATFORM_H
#define VELCAN_PROCESS_PLATFORM_H

#include <cstddef>

#include <ace/Process.h>

namespace velcan {
namespace platform {

// The process object: ACE's, with the platform's child-side set-up.
class ChildProcess : public ACE_Process {
  protected:
    void child(pid_t parent) override;
};

// Holds whatever must stay still from set_handles until the options are released, so that
// no other spawn of this library inherits the copies the options hold.
class SpawnGuard {
  public:
    SpawnGuard();
    ~SpawnGuard();
    SpawnGuard(const SpawnGuard&) = delete;
    SpawnGuard& operator=(const SpawnGuard&) = delete;
};

// 0 when the program named by the first word of a command line can be started, otherwise
// the errno value that says why not (ENOENT, EACCES).
int checkProgram(const char* program);

// An anonymous pipe whose ends no child inherits. 0, or -1 with errno set.
int createPipe(ACE_HANDLE ends[2]);

// The null device, opened read-only and not inherited; ACE_INVALID_HANDLE on failure.
ACE_HANDLE openNullDevice();

// Gives the child its standard handles through the options.
void setHandles(ACE_Process_Options& options, ACE_HANDLE input, ACE_HANDLE output);

// Asks that the child's window be hidden, where children have windows.
void hideWindow(ACE_Process_Options& options);

// Reads at most size bytes. The count read, 0 at the end, or -1 with errno set on failure.
// An interrupted read is retried.
ptrdiff_t readPipe(ACE_HANDLE handle, char* buffer, size_t size);

// Closes a handle; a failure only sets errno.
void closeHandle(ACE_HANDLE handle);

// True when the spawn made a process, which must then be waited for.
bool spawned(const ACE_Process& process);

// Waits, with no time limit, for the child to end. True with its exit code in *exitCode
// (128 + the signal number for a child a signal ended); false when the wait fails.
bool waitForExit(ACE_Process& process, int* exitCode);

#if defined(_WIN32)
// The errno value for a Windows error code: 3, 8, 32 and 80 become ENOENT, ENOMEM, EACCES
// and EEXIST; any other code is kept as it is.
int errnoFromWindowsError(unsigned long code);
#endif

} // namespace platform
} // namespace velcan

#endif
