/* velcan's C interface: the version history, version numbers and the command runner, for any
   compiler and any language that calls C (C#, Python's ctypes, Rust, Delphi). C89 and C++
   alike; it needs only <stddef.h>. The XML reading class stays C++ only: a C program reads
   XML with expat itself.

   The rules, for every call below:
   - A call returns a velcan_status (VELCAN_OK, or why it failed) or the value it documents;
     it never throws, never prints and never ends the process. Running out of memory is
     VELCAN_ERROR_NO_MEMORY.
   - After a failure, velcan_last_error() describes it, for the calling thread: each thread has
     its own message. A call that succeeds leaves the message as it was.
   - Every text in and out is UTF-8, ended by a NUL, on every system (on Windows too, whatever
     the code page).
   - What a call returns stays the library's, valid as long as the call says; what the library
     allocates for the caller (velcan_history_notes' text) is freed with velcan_free(), and
     each handle with its own free call, never with the caller's free() or a runtime's.
   - A handle is used by one thread at a time, but for what velcan_cancel_trigger() says.
   - Callbacks run on the caller's thread, inside the call that was given them, and never
     after it returned.
   - A struct the caller fills (velcan_result) carries its size first, so that it may grow.
   - Integers are int or size_t, never long, whose size differs between systems.
   Per-system detail of the runner: docs/runner.md. */
#ifndef VELCAN_C_H
#define VELCAN_C_H

#include <stddef.h>

#if defined(_WIN32) || defined(__CYGWIN__)
#if defined(VELCAN_BUILDING)
#define VELCAN_C_API __declspec(dllexport)
#else
#define VELCAN_C_API __declspec(dllimport)
#endif
/* One calling convention on 32-bit Windows, whatever a compiler's default. */
#define VELCAN_CALL __cdecl
#else
#define VELCAN_C_API __attribute__((visibility("default")))
#define VELCAN_CALL
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* What a call says of itself. */
typedef enum velcan_status {
    VELCAN_OK = 0,
    /* An argument is null where a value is needed, or out of its range. */
    VELCAN_ERROR_ARGUMENT = 1,
    VELCAN_ERROR_NO_MEMORY = 2,
    /* A file could not be opened or read (the message says why). */
    VELCAN_ERROR_FILE = 3,
    /* The history held no versions: its XML is malformed, empty or not standalone, or it has
       no Version element. */
    VELCAN_ERROR_NO_VERSIONS = 4,
    /* A callback returned nonzero or failed; the run was ended as a cancel ends it. */
    VELCAN_ERROR_STOPPED_BY_CALLBACK = 5,
    /* Anything else the library did not expect. */
    VELCAN_ERROR_INTERNAL = 6
} velcan_status;

/* The calling thread's message for its last failure, in English, never null ("" before any).
   Valid until the thread's next failing call. */
VELCAN_C_API const char* VELCAN_CALL velcan_last_error(void);

/* Frees what the library allocated for the caller (velcan_history_notes' text); null is
   nothing. */
VELCAN_C_API void VELCAN_CALL velcan_free(void* memory);

/* ---- Version numbers: the rules are velcan/history/version_number.h's. -------------------- */

/* 1 when text is a version number, else 0 (null reads as ""). */
VELCAN_C_API int VELCAN_CALL velcan_version_is_valid(const char* text);

/* -1 when a is older than b, 0 when they are the same version, 1 when a is newer. The order is
   total, texts that are no version numbers first; null reads as "". */
VELCAN_C_API int VELCAN_CALL velcan_version_compare(const char* a, const char* b);

/* ---- The version history. ------------------------------------------------------------------ */

/* A version history read into memory; opaque. */
typedef struct velcan_history velcan_history;

/* Reads the history file at path into *history, with the record VelcanParseUpdateFile gives
   (the file is read in text mode), and closes the file whatever happens. On failure *history is
   null: VELCAN_ERROR_FILE when it cannot be opened or read, VELCAN_ERROR_NO_VERSIONS when it
   holds no versions. Free the history with velcan_history_free(). */
VELCAN_C_API velcan_status VELCAN_CALL velcan_history_read_file(const char* path,
                                                                velcan_history** history);

/* The same from size bytes at data, which the caller keeps (nothing is kept after the call);
   data may be null when size is 0. */
VELCAN_C_API velcan_status VELCAN_CALL velcan_history_read_buffer(const void* data, size_t size,
                                                                  velcan_history** history);

/* The versions of history newer than installed, in the history's order, into *newer (which
   may hold none: VELCAN_OK). A text that is not a version number is refused
   (VELCAN_ERROR_ARGUMENT). */
VELCAN_C_API velcan_status VELCAN_CALL velcan_history_newer_than(const velcan_history* history,
                                                                 const char* installed,
                                                                 velcan_history** newer);

/* Frees a history; null is nothing. Every pointer it gave is then invalid. */
VELCAN_C_API void VELCAN_CALL velcan_history_free(velcan_history* history);

/* The number of versions (0 for null). */
VELCAN_C_API size_t VELCAN_CALL velcan_history_count(const velcan_history* history);

/* The index of the newest version, or -1 when there is none. */
VELCAN_C_API int VELCAN_CALL velcan_history_newest(const velcan_history* history);

/* Version index's number and date attributes, as read ("" when absent), and how many feature
   descriptions it has. Null (or 0) when index is out of range. The texts live as long as the
   history. */
VELCAN_C_API const char* VELCAN_CALL velcan_history_number(const velcan_history* history,
                                                           size_t index);
VELCAN_C_API const char* VELCAN_CALL velcan_history_date(const velcan_history* history,
                                                         size_t index);
VELCAN_C_API size_t VELCAN_CALL velcan_history_description_count(const velcan_history* history,
                                                                 size_t index);
/* Description d of version index, exactly as gathered; null when out of range. */
VELCAN_C_API const char* VELCAN_CALL velcan_history_description(const velcan_history* history,
                                                                size_t index, size_t d);

/* The release notes' formats, as `velcan history --format` writes them. */
typedef enum velcan_notes_format {
    VELCAN_NOTES_TEXT = 0,
    VELCAN_NOTES_MARKDOWN = 1,
    VELCAN_NOTES_HTML = 2,
    /* A whole HTML page around the notes. */
    VELCAN_NOTES_HTML_PAGE = 3,
    VELCAN_NOTES_JSON = 4
} velcan_notes_format;

/* The history as release notes in format (a velcan_notes_format; another value is refused),
   every version in its order, into *text (*size bytes and a NUL after them), allocated for the
   caller: free it with velcan_free(). */
VELCAN_C_API velcan_status VELCAN_CALL velcan_history_notes(const velcan_history* history,
                                                            int format, char** text, size_t* size);

/* ---- Running a command (VelcanCommand's way: velcan/process/command.h). -------------------- */

/* A cancel for runs; opaque. velcan_cancel_trigger() is safe from any thread at any time. */
typedef struct velcan_cancel velcan_cancel;

VELCAN_C_API velcan_status VELCAN_CALL velcan_cancel_new(velcan_cancel** cancel);
/* Not while a run given it is under way. */
VELCAN_C_API void VELCAN_CALL velcan_cancel_free(velcan_cancel* cancel);
/* Ends every run given this cancel (VELCAN_END_CANCELLED) and keeps later ones from starting,
   until velcan_cancel_reset(). Never blocks; safe from any thread; null is nothing. */
VELCAN_C_API void VELCAN_CALL velcan_cancel_trigger(velcan_cancel* cancel);
/* Takes the request back; not while a run given it is under way. */
VELCAN_C_API void VELCAN_CALL velcan_cancel_reset(velcan_cancel* cancel);

/* One command and everything around its run; opaque. The setters copy what they are given
   (the input's bytes too), but for the cancel, which must outlive every run. */
typedef struct velcan_command velcan_command;

VELCAN_C_API velcan_status VELCAN_CALL velcan_command_new(velcan_command** command);
VELCAN_C_API void VELCAN_CALL velcan_command_free(velcan_command* command);

/* The command as count arguments, the program first (none may be null); or as one line,
   taken as LaunchBlockingProcess takes it. Each replaces the other. */
VELCAN_C_API velcan_status VELCAN_CALL velcan_command_set_arguments(velcan_command* command,
                                                                    const char* const* arguments,
                                                                    size_t count);
VELCAN_C_API velcan_status VELCAN_CALL velcan_command_set_line(velcan_command* command,
                                                               const char* line);
/* The directory the child starts in; null: the caller's. */
VELCAN_C_API velcan_status VELCAN_CALL velcan_command_set_directory(velcan_command* command,
                                                                    const char* directory);
/* Sets a variable of the child's environment, over the caller's; a null value removes it. */
VELCAN_C_API velcan_status VELCAN_CALL velcan_command_set_variable(velcan_command* command,
                                                                   const char* name,
                                                                   const char* value);
/* The longest the run may take, in seconds; 0 (the default) or infinity: no limit. A
   negative time or NaN is refused (VELCAN_ERROR_ARGUMENT). When it passes, the child and all
   it started are ended (VELCAN_END_TIMED_OUT). */
VELCAN_C_API velcan_status VELCAN_CALL velcan_command_set_time_limit(velcan_command* command,
                                                                     double seconds);
/* How long ended processes have after SIGTERM before SIGKILL (POSIX; 1 s by default). */
VELCAN_C_API velcan_status VELCAN_CALL velcan_command_set_grace(velcan_command* command,
                                                                double seconds);
/* Standard input: size bytes (copied; data may be null when size is 0), then its end. By
   default the null device. */
VELCAN_C_API velcan_status VELCAN_CALL velcan_command_set_input(velcan_command* command,
                                                                const void* data, size_t size);
/* The cancel that ends a run; null: none. It stays the caller's. */
VELCAN_C_API velcan_status VELCAN_CALL velcan_command_set_cancel(velcan_command* command,
                                                                 velcan_cancel* cancel);

/* Receives a piece of the child's output as it arrives: size bytes at bytes (no NUL is
   promised; valid only during the call). Returns 0 to go on, nonzero to end the run as a cancel
   does. It must not throw or jump out of the call. */
typedef int(VELCAN_CALL* velcan_output_callback)(void* user, const char* bytes, size_t size);

/* Where standard output goes, and standard error when no error callback is set (interleaved);
   null: discarded. */
VELCAN_C_API velcan_status VELCAN_CALL velcan_command_set_output(velcan_command* command,
                                                                 velcan_output_callback callback,
                                                                 void* user);
/* Standard error apart; null: with the output. */
VELCAN_C_API velcan_status VELCAN_CALL velcan_command_set_error(velcan_command* command,
                                                                velcan_output_callback callback,
                                                                void* user);

/* How a run ended: VelcanRunEnd's values. */
typedef enum velcan_end {
    VELCAN_END_EXITED = 0,
    VELCAN_END_SIGNALED = 1,
    VELCAN_END_TIMED_OUT = 2,
    VELCAN_END_CANCELLED = 3,
    VELCAN_END_PROGRAM_NOT_STARTED = 4,
    VELCAN_END_SETUP_FAILED = 5,
    VELCAN_END_REFUSED = 6
} velcan_end;

/* What a run gives back. Set size to sizeof(velcan_result) before the call; a later version
   fills only the fields that size covers. */
typedef struct velcan_result {
    size_t size;
    /* A velcan_end. */
    int end;
    /* The exit status, signal number or Windows exception code, as end says; 0 when nothing
       ran. */
    int code;
    /* Why nothing ran, or the first failure of a run that started, as an errno value; or 0. */
    int error;
    /* The system's own code for it (errno's, or on Windows GetLastError's). */
    int system_error;
} velcan_result;

/* Runs the command on the calling thread and fills *result once it has ended, as
   VelcanCommand::Run() does. VELCAN_OK whatever way the run ended (result says how); an
   error status when the call itself failed: VELCAN_ERROR_STOPPED_BY_CALLBACK when a callback
   ended the run (result says VELCAN_END_CANCELLED then). */
VELCAN_C_API velcan_status VELCAN_CALL velcan_command_run(velcan_command* command,
                                                          velcan_result* result);

#ifdef __cplusplus
}
#endif

#endif
