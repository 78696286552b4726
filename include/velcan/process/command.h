// VelcanCommand: the second way to run a command, beside LaunchBlockingProcess: an argument list
// or a line, a directory, environment changes, input, standard error apart, a time limit and a
// cancel that end the child and everything it started. Per-system detail: docs/runner.md.
#ifndef VELCAN_PROCESS_COMMAND_H
#define VELCAN_PROCESS_COMMAND_H

#include <cstddef>

#include "velcan/export.h"
#include "velcan/process/blocking_process.h"

// A cancel for runs. Holds one system handle for its lifetime; when that could not be made, a
// run given it does not start (SetupFailed). Only Cancel() and IsCancelled() may be called while
// a run given it is under way.
class VELCAN_API VelcanCancel {
  public:
    VelcanCancel();
    ~VelcanCancel();
    VelcanCancel(const VelcanCancel&) = delete;
    VelcanCancel& operator=(const VelcanCancel&) = delete;

    // Ends every run given this object as a time limit would (Cancelled), and keeps any later
    // run from starting, until Reset(). Idempotent and never blocks; safe from any thread, from
    // an observer's operation and, on POSIX systems, from a signal handler.
    void Cancel();
    // Whether Cancel() was called since the object was made or last Reset().
    bool IsCancelled() const;
    // Takes the request back. Not while a run given it is under way.
    void Reset();

  private:
    friend struct VelcanCancelAccess;
    long long handle_;
    int error_;
};

// How a run ended.
enum class VelcanRunEnd : int {
    // The child exited; code is its exit status. code -1 (error ECHILD): it ended, but the
    // system kept no status, because the caller ignores SIGCHLD or set SA_NOCLDWAIT.
    Exited = 0,
    // The child was ended by a signal (code: its number) or, on Windows, an exception (code: the
    // exception's code as an int).
    Signaled = 1,
    // The time limit ended the child and everything it started; code is how the child ended.
    TimedOut = 2,
    // The cancel did, as TimedOut; or it was triggered before Run(): nothing was started, code
    // is 0 and error ECANCELED.
    Cancelled = 3,
    // The program could not be started (error: ENOENT, EACCES, ENOEXEC, ...). Nothing ran.
    ProgramNotStarted = 4,
    // What the run needed around the program failed: the directory, the input file, pipes,
    // descriptors, memory or processes (error says which). Nothing ran.
    SetupFailed = 5,
    // The command was refused as given (error: EINVAL, E2BIG or ENOENT). Nothing ran.
    Refused = 6,
};

// What a run gives back.
struct VelcanRunResult {
    VelcanRunEnd end;
    // The exit status, signal number or exception code, as `end` says; 0 when nothing ran.
    int code;
    // Why nothing ran, as an errno value; for a run that started, the first failure of reading
    // its output or waiting for it, or 0.
    int error;
    // The system's own code for that failure (errno's value, or on Windows GetLastError's).
    long systemError;
};

// What a run tells beyond its result, for Run(VelcanRunDetails*). The caller sets size to
// sizeof(VelcanRunDetails); a later version fills only the members that size covers.
struct VelcanRunDetails {
    std::size_t size;
    // How the child itself ended, whatever ended the run: Exited or Signaled, with the result's
    // code (a run ended by its time limit whose child a signal ended: Signaled). For a run that
    // started nothing, the result's own end.
    VelcanRunEnd childEnd;
    // Whether the output (or the error stream) went past its limit and bytes were dropped.
    bool outputCut;
    bool errorsCut;
};

struct VelcanCommandState; // the library's own

// One command and everything around its run. Set what the run needs, then call Run() as often as
// wanted. The setters copy what they are given, but for the input's bytes, the observers and the
// cancel, which stay the caller's and must outlive every Run(). Text is UTF-8 on every system.
// An object is used by one thread at a time.
class VELCAN_API VelcanCommand {
  public:
    VelcanCommand();
    ~VelcanCommand();
    VelcanCommand(const VelcanCommand&) = delete;
    VelcanCommand& operator=(const VelcanCommand&) = delete;

    // The command as a list of arguments, the program first, ended by a null pointer. Nothing is
    // split or interpreted and no limit applies but the system's. A program without a directory
    // in its name is looked for on the child's PATH; on Windows, how the list becomes a line and
    // where the program is looked for are in docs/runner.md (a batch file's argument that cmd
    // would act on is Refused, EINVAL). Replaces any earlier command.
    void SetArguments(const char* const* arguments);

    // The command as one line, taken as LaunchBlockingProcess takes it (its format, splitting and
    // limits). Replaces any earlier command.
    void SetCommandLine(const char* commandLine);

    // The directory the child starts in; null (the default): the caller's. A relative input file
    // is still relative to the caller's.
    void SetWorkingDirectory(const char* directory);

    // Sets a variable in the child's environment, on top of the caller's; a later call for the
    // same name wins. Names compare as the system does (on Windows, letter case aside).
    void SetEnvironment(const char* name, const char* value);
    // Removes a variable from the child's environment.
    void UnsetEnvironment(const char* name);
    // Starts the child's environment empty instead of from the caller's (as env -i does); the
    // variables set with SetEnvironment() are all it gets.
    void ClearEnvironment();

    // The longest the run may take, in seconds from the call of Run(). 0 (the default), infinity
    // and a time longer than a 64-bit count of milliseconds holds: no limit. When it passes, the
    // child and everything it started are ended and Run() returns TimedOut. A negative time or
    // NaN: Run() refuses the command (Refused, EINVAL).
    void SetTimeLimit(double seconds);

    // How long the ended processes have to end after SIGTERM before SIGKILL (POSIX systems; 1 s
    // by default). 0: SIGKILL at once; infinity or a time too long for the clock: never SIGKILL.
    // Negative or NaN: as for SetTimeLimit. Windows ends a run's processes at once.
    void SetGracePeriod(double seconds);

    // The signal that a time limit or a cancel sends the processes first, before SIGKILL after
    // the grace period (POSIX systems; SIGCONT follows it, for a stopped process). 0 (the
    // default): SIGTERM. A number that is no signal (negative, or above 64): Run() refuses the
    // command (Refused, EINVAL). Windows ends a run's processes at once and ignores it.
    void SetEndSignal(int signal);

    // A cancel that another thread or the observer can trigger; null (the default): none.
    void SetCancel(VelcanCancel* cancel);

    // Standard input; by default the null device (end of input at once). SetInput: `size` bytes
    // from memory, written as the child reads them, then end of input. SetInputFile: a file,
    // opened when the run starts. InheritInput: the caller's own standard input.
    void SetInput(const void* bytes, std::size_t size);
    void SetInputFile(const char* path);
    void InheritInput();

    // Where the output goes. The output observer gets standard output and, when no error
    // observer is set, standard error interleaved with it; null: the output is discarded, never
    // blocking the child. Observers are called on Run()'s thread, one operation at a time, as
    // IBlockingProcessObserver says. One that hands out no room closes its stream: the child's
    // next write to it fails (a broken pipe).
    void SetOutputObserver(IBlockingProcessObserver* observer);
    void SetErrorObserver(IBlockingProcessObserver* observer);
    // The child writes to the caller's own standard output (or error), which the library never
    // reads: a terminal stays a terminal. Where the caller has none, the null device. Replaces
    // the observer for that stream; a later Set...Observer() replaces this.
    void InheritOutput();
    void InheritError();

    // The most bytes handed to the output (or error) observer in a run; the default, SIZE_MAX:
    // no limit. Past it the rest is read and dropped, so the child never blocks, and
    // Run(VelcanRunDetails*) says the stream was cut; with endRun true the run is ended then
    // too, as a cancel ends it (Cancelled).
    void SetOutputLimit(std::size_t bytes, bool endRun = false);
    void SetErrorLimit(std::size_t bytes, bool endRun = false);

    // When the child ends while processes it started still hold its output: false (the default)
    // waits for them to close it; true ends them as a time limit would (end stays Exited or
    // Signaled).
    void SetEndOthersWithChild(bool end);

    // Runs the command on the calling thread and returns once it has ended; when the run was
    // ended (time limit, cancel, SetEndOthersWithChild), once every process of its group (POSIX)
    // or job (Windows) was killed. The child gets its three standard handles and nothing else of
    // the caller's. Starts no thread, keeps nothing after returning, leaves errno as it was, and
    // retries what a signal handler interrupts. Never throws.
    VelcanRunResult Run();
    // The same, and fills *details (null: as Run()).
    VelcanRunResult Run(VelcanRunDetails* details);

  private:
    VelcanCommandState* state_;
};

#endif
