// Running a command to completion while its output streams to an observer.
#ifndef VELCAN_PROCESS_BLOCKING_PROCESS_H
#define VELCAN_PROCESS_BLOCKING_PROCESS_H

#include "velcan/export.h"

// Receives a child's output, piece by piece, into memory the observer hands out. Its
// operations are called on the thread that called LaunchBlockingProcess, one at a time,
// never after that call has returned.
class VELCAN_API IBlockingProcessObserver {
  public:
    IBlockingProcessObserver() = default;
    IBlockingProcessObserver(const IBlockingProcessObserver&) = default;
    IBlockingProcessObserver& operator=(const IBlockingProcessObserver&) = default;
    virtual ~IBlockingProcessObserver();

    // Store in *buffer where the next piece is to be written and in *capacity how many bytes
    // are there, room for the terminating NUL included. Store both on every call: the runner
    // reads at most *capacity - 1 bytes and writes nowhere else. A capacity of 1 asks for
    // nothing and ends the reading; so do a capacity below 1 and a null buffer (nothing is
    // read or written, and the runner only waits for the child).
    virtual void GetOutputBuffer(char** buffer, int* capacity) = 0;

    // count bytes (at least 1) were written at the last buffer handed out, followed by a NUL
    // byte that count does not include.
    virtual void OutputReceived(int count) = 0;
};

// Runs commandLine as a child process with no window, no shell and end-of-input on its
// standard input; passes everything it writes to standard output and standard error, in one
// interleaved sequence, to observer as each read returns; waits for it to end and returns
// its exit code: on POSIX systems 128 + the signal number when a signal ended it; on Windows
// the code's 32 bits as an int, so a code above 255 comes back whole and a child ended by an
// exception returns the exception's code (an access violation, 0xC0000005, as -1073741819).
// The output ends, and the call returns, only once every process holding it has closed it:
// a grandchild that inherits it (a shell's "&", cmd's "start /b") keeps the call until it
// ends. observer may be null: the output is then not read at all, and a child that fills the pipe
// (64 KiB on Linux, Windows' default size, 4 KiB in practice) blocks until it is killed: the call
// does not return. The same holds for an observer that hands out no room. Pass an observer that
// always has room, or run only commands whose output fits the pipe.
//
// The command line is a printf-style format with no arguments: write a literal percent sign
// as "%%". There is no shell. After "%%" becomes "%", it is split into words:
//   - spaces separate words (several count as one);
//   - a word that starts with a double or single quote runs to the next quote of the same
//     kind; both quotes are removed, and what follows starts a new word: "a b"c gives
//     `a b` and `c`, "" gives an empty word;
//   - a quote inside a word is kept, and the text up to the next quote of its kind stays in
//     the word, spaces included: a"b c"d is the one word `a"b c"d`;
//   - a quote with no partner runs to the end of the line and is kept: "a b gives `"a b`.
// The first word is the program. On Windows the line goes to CreateProcess as it is (after
// "%%" becomes "%"), and the child's runtime splits it by its own rules (for Microsoft's C
// runtime: double quotes group and are removed, single quotes are ordinary characters); the
// rules above only decide the limits below and which program runs.
//
// Returns 127 with errno set, calling no observer operation, when the command is refused or
// cannot be run: an empty or blank line, or a program that is not found (ENOENT); a program
// that may not be executed (EACCES); a line longer than 1023 characters, or of more than 127
// words, the program's included (E2BIG); a percent sign that is not half of "%%" (EINVAL); no
// pipe, null device or process to be had (EMFILE, ENFILE, EAGAIN, ENOMEM); on POSIX systems any
// error of the child's exec (a missing "#!" interpreter: ENOENT; ETXTBSY, E2BIG, ELOOP, ...); on
// Windows a file CreateProcess cannot start (ENOEXEC). A file without "#!" that is not a binary
// runs through /bin/sh, as execvp does. Where Windows looks for the program, and why a batch
// file must never get text from elsewhere: docs/runner.md.
// When the child ran, errno is left as the caller set it unless reading its output or waiting
// for it failed; a failed wait (as in a caller that ignores SIGCHLD, whose children the system
// reaps) returns 127 with that error (ECHILD). On Windows the end of a child's output is itself
// a failed read (a broken pipe), so after an ordinary run with an observer errno is 109. 127 is
// also what a child that exits with 127 returns: clear errno first to tell them apart.
//
// The observer stays the caller's; the runner keeps no pointer to it after returning, and
// allocates nothing per piece. Calls on different threads are independent: each child gets
// descriptors 0, 1 and 2 and nothing else of the caller's, and no other child of the
// application inherits a run's pipe (on POSIX systems; docs/runner.md tells Windows' one
// exception). It works in programs whose own descriptors 0-2 are closed, and reads and waits
// interrupted by a signal handler without SA_RESTART are retried.
VELCAN_API int LaunchBlockingProcess(const char* commandLine, IBlockingProcessObserver* observer);

#endif
