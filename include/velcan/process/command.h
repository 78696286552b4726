// Running a command the way an application needs to: bounded by a time limit, stoppable by a
// cancel, placed in a folder with its own environment and input, its standard error apart if
// asked, and ended as a whole (the child and everything it started) when the run is ended.
//
//     VelcanCancel cancel;                     // another thread may call cancel.Cancel()
//     VelcanCommand command;
//     const char* const argv[] = {"make", "-j2", nullptr};
//     command.SetArguments(argv);
//     command.SetWorkingDirectory("/home/me/project");
//     command.SetEnvironment("LC_ALL", "C");
//     command.SetTimeLimit(60);
//     command.SetCancel(&cancel);
//     command.SetOutputObserver(&window);      // an IBlockingProcessObserver
//     const VelcanRunResult result = command.Run();
//
// LaunchBlockingProcess (blocking_process.h) stays as it is; this is the second way, beside it.
#ifndef VELCAN_PROCESS_COMMAND_H
#define VELCAN_PROCESS_COMMAND_H

#include <cstddef>

#include "velcan/export.h"
#include "velcan/process/blocking_process.h"

// A cancel for runs: once Cancel() is called, every run given this object ends as a run that
// hits its time limit does (see VelcanCommand::Run), and a run started later ends before it
// starts anything, until Reset(). Cancel() may be called from any thread, from an observer's
// operation (to stop the run it observes) and, on POSIX systems, from a signal handler (it
// only writes to an eventfd). Nothing else of this class may be called while a run that was
// given it is under way, but Cancel() and IsCancelled().
//
// The object holds one descriptor (an eventfd; on Windows an event handle) for its lifetime.
// When it could not be made (no descriptors left), a run given it does not start and says
// why (VelcanRunEnd::SetupFailed).
class VELCAN_API VelcanCancel {
  public:
    VelcanCancel();
    ~VelcanCancel();
    VelcanCancel(const VelcanCancel&) = delete;
    VelcanCancel& operator=(const VelcanCancel&) = delete;

    // Asks the runs to end. Idempotent; never blocks; safe from any thread.
    void Cancel();
    // Whether Cancel() was called since the object was made or last Reset().
    bool IsCancelled() const;
    // Takes the request back, for the next run. Not while a run given it is under way.
    void Reset();

  private:
    friend struct VelcanCancelAccess;
    long long handle_; // the eventfd's descriptor or the event's HANDLE; -1 when none
    int error_;        // why there is none (an errno value), or 0
};

// How a run ended.
enum class VelcanRunEnd : int {
    // The child exited by itself; code is its exit status (on Windows the 32-bit code as an
    // int, for codes that are no exception's).
    Exited = 0,
    // The child was ended by a signal (POSIX: code is the signal's number) or by an exception
    // (Windows: code is the exception's code as an int, an access violation -1073741819).
    Signaled = 1,
    // The time limit came first: the child and everything it started were ended; code is how
    // the child itself ended (on POSIX systems the signal's number, 15 or 9, or the status it
    // exited with if it caught SIGTERM; on Windows 1, the code its job is terminated with).
    TimedOut = 2,
    // The cancel came first (VelcanCancel::Cancel): as TimedOut.
    Cancelled = 3,
    // The program could not be started; error says why: ENOENT not found, EACCES found but not
    // executable (a folder, no permission), ENOEXEC not a program the system can start, or the
    // system's other exec errors. Nothing ran.
    ProgramNotStarted = 4,
    // What the run needed around the program failed, and the program was not tried; error says
    // why: the working folder (ENOENT, ENOTDIR, EACCES), the input file, or pipes, descriptors,
    // memory or processes (EMFILE, ENFILE, ENOMEM, EAGAIN).
    SetupFailed = 5,
    // The command was refused as given and nothing was tried; error says why: EINVAL for no
    // program, an empty or malformed line, a variable name that is empty or holds '=', or (on
    // Windows) text that is not UTF-8 or a batch file's argument that cmd would act on; E2BIG
    // for a line over LaunchBlockingProcess's limits; ENOENT for a blank line.
    Refused = 6,
};

// What a run gives back.
struct VelcanRunResult {
    VelcanRunEnd end;
    // The exit status, the signal's number or the exception's code, as `end` says; 0 when the
    // program was not started.
    int code;
    // Why the program was not started or the command was refused, as an errno value; for a run
    // that started, the first failure of reading its output or waiting for it, or 0.
    int error;
    // The system's own code for that failure: errno's value on POSIX systems, GetLastError's on
    // Windows; 0 when there was none.
    long systemError;
};

struct VelcanCommandState; // the library's own

// One command and everything around its run. Set what the run needs, then call Run(), as often
// as wanted; each Run() is a run of its own. The setters copy what they are given but the
// input's bytes (SetInput) and the observers and the cancel, which must outlive every Run().
// An object is used by one thread at a time.
//
// Text is UTF-8 on every system: on Windows the program, arguments, folder and environment
// reach the child through the wide (UTF-16) API whatever the process's code page.
class VELCAN_API VelcanCommand {
  public:
    VelcanCommand();
    ~VelcanCommand();
    VelcanCommand(const VelcanCommand&) = delete;
    VelcanCommand& operator=(const VelcanCommand&) = delete;

    // The command as a list of arguments, the program first, ended by a null pointer. Nothing is
    // split or interpreted, and no limit applies but the system's. A program without a slash is
    // looked up on PATH as the child's environment has it (a file without "#!" that is not a
    // binary runs through /bin/sh, as execvp does); one with is a path, relative to the working
    // folder. On Windows a name without a slash, backslash or colon is looked for in the
    // application's folder, the system folders and the child's PATH, never the current folder,
    // ".exe" added when it has no extension. On Windows each argument is quoted so that
    // Microsoft's C runtime splits the line back into exactly these arguments, and a program
    // ending in .bat or .cmd runs through cmd with each argument escaped for it: an argument
    // cmd would act on even within quotes (one holding '"', '%', a carriage return or a line
    // feed) is refused (VelcanRunEnd::Refused, EINVAL). Replaces any earlier command.
    void SetArguments(const char* const* arguments);

    // The command as one line, as LaunchBlockingProcess takes it: a printf format with no
    // arguments ("%%" for "%"), split into words on POSIX systems by that call's rules and
    // limits (1023 characters, 127 words), given to CreateProcess as it is on Windows.
    // Replaces any earlier command.
    void SetCommandLine(const char* commandLine);

    // The folder the child starts in (null: the caller's, the default). A relative input file
    // is still relative to the caller's folder.
    void SetWorkingDirectory(const char* folder);

    // Sets a variable in the child's environment, on top of the caller's (a later call for the
    // same name wins). On Windows names compare without regard to letter case, as the system
    // does.
    void SetEnvironment(const char* name, const char* value);
    // Removes a variable from the child's environment.
    void UnsetEnvironment(const char* name);

    // The longest the run may take, in seconds from the call of Run() (0, the default: no
    // limit). When it passes, the child and everything it started are ended: on POSIX systems
    // the child runs in a process group of its own, which gets SIGTERM and, after the grace
    // period, SIGKILL; on Windows the child runs in a job object from its first instruction,
    // which is terminated. Run() then returns VelcanRunEnd::TimedOut.
    void SetTimeLimit(double seconds);

    // How long the ended processes have between SIGTERM and SIGKILL on POSIX systems (1 s by
    // default; 0 sends SIGKILL at once). Windows has no gentle end for a job: it is terminated.
    void SetGracePeriod(double seconds);

    // A cancel another thread (or the observer) can trigger; null for none (the default).
    void SetCancel(VelcanCancel* cancel);

    // Standard input. By default the null device (end of input at once). SetInput gives `size`
    // bytes from memory, written as the child reads them, then end of input; the bytes are the
    // caller's and must stay as they are until Run() returns. SetInputFile gives a file, opened
    // for reading when the run starts. InheritInput gives the caller's own standard input.
    void SetInput(const void* bytes, std::size_t size);
    void SetInputFile(const char* path);
    void InheritInput();

    // Where the output goes. The output observer gets standard output and, unless an error
    // observer is set, standard error too, interleaved as written (null: the output goes to the
    // null device, so the child is never blocked by it). The error
    // observer gets standard error apart. Each observer is called on the thread that called
    // Run(), one operation at a time, as IBlockingProcessObserver says; an observer that hands
    // out no room (a capacity of 1 or less, or a null buffer) closes its stream: a child that
    // writes to it afterwards gets a broken pipe (SIGPIPE, or EPIPE where it ignores SIGPIPE).
    void SetOutputObserver(IBlockingProcessObserver* observer);
    void SetErrorObserver(IBlockingProcessObserver* observer);

    // What happens when the child ends while processes it started still hold its output open:
    // false (the default, as LaunchBlockingProcess does) waits for them to close it; true ends
    // them as a time limit would (the run still ends as VelcanRunEnd::Exited or Signaled).
    void SetEndOthersWithChild(bool end);

    // Runs the command on the calling thread and returns once it has ended and, when the run was
    // ended (time limit, cancel, SetEndOthersWithChild), once every process of the run has been
    // sent SIGKILL (POSIX) or its job terminated (Windows): no process of an ended run outlives
    // the call, save one that left the process group itself (setsid, setpgid) on POSIX systems.
    // A process a finished run left running in the background (its output closed) goes on on
    // POSIX systems; on Windows the job ends with the call, and it with it.
    //
    // Starts no thread, keeps nothing after returning, and leaves errno as it was. The child
    // gets descriptors 0, 1 and 2 and nothing else of the caller's (Windows: its three handles,
    // by an explicit list), with SIGPIPE and SIGXFSZ at their defaults and the caller's signal
    // mask cleared. Reads and waits interrupted by a signal handler are retried.
    VelcanRunResult Run();

  private:
    VelcanCommandState* state_;
};

#endif
