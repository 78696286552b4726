/* A Windows program that no GCC built: compiled by clang for the MSVC targets and linked by
   lld-link against velcan.lib, the DLL's MSVC import library, and a kernel32 import library of
   its own; no C runtime at all, so it brings its entry point, the few Windows declarations it
   needs, and memset. It uses the shipped DLL's C interface as an MSVC application would and
   prints one line per check; its exit code is the number of checks that failed.
   VELCAN_SAMPLE is the sample history, VELCAN_CHILD the runner's test child. */
#include <stddef.h>

#include <velcan/c.h>

typedef void* HANDLE;
typedef unsigned long DWORD;
typedef int BOOL;
#define WINAPI __stdcall
#define IMPORT __declspec(dllimport)
IMPORT HANDLE WINAPI GetStdHandle(DWORD which);
IMPORT BOOL WINAPI WriteFile(HANDLE file, const void* bytes, DWORD size, DWORD* written,
                             void* overlapped);
IMPORT void WINAPI ExitProcess(unsigned int code);
IMPORT HANDLE WINAPI CreateFileA(const char* path, DWORD access, DWORD share, void* security,
                                 DWORD disposition, DWORD flags, HANDLE model);
IMPORT BOOL WINAPI ReadFile(HANDLE file, void* bytes, DWORD size, DWORD* read, void* overlapped);
IMPORT BOOL WINAPI CloseHandle(HANDLE handle);
IMPORT HANDLE WINAPI CreateThread(void* security, size_t stack, DWORD(WINAPI* start)(void*),
                                  void* parameter, DWORD flags, DWORD* id);
IMPORT DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD milliseconds);
IMPORT HANDLE WINAPI CreateEventA(void* security, BOOL manual, BOOL initial, const char* name);
IMPORT BOOL WINAPI SetEvent(HANDLE event);
#define STD_OUTPUT_HANDLE ((DWORD)-11)
#define GENERIC_READ 0x80000000UL
#define OPEN_EXISTING 3
#define INFINITE 0xFFFFFFFFUL

/* What the compiler may call for itself where a C runtime would give it. */
int _fltused = 0;
void* memset(void* to, int value, size_t size) {
    unsigned char* p = (unsigned char*)to;
    while (size-- > 0) {
        *p++ = (unsigned char)value;
    }
    return to;
}

static int failed = 0;

static size_t length(const char* s) {
    size_t n = 0;
    while (s[n] != '\0') {
        ++n;
    }
    return n;
}

static int startsWith(const char* s, const char* prefix) {
    size_t i;
    for (i = 0; prefix[i] != '\0'; ++i) {
        if (s == NULL || s[i] != prefix[i]) {
            return 0;
        }
    }
    return 1;
}

static void say(const char* text) {
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), text, (DWORD)length(text), &written, NULL);
}

static void check(int passed, const char* what) {
    say(passed ? "ok:     " : "FAILED: ");
    say(what);
    say(passed ? "\n" : " (");
    if (!passed) {
        say(velcan_last_error());
        say(")\n");
        ++failed;
    }
}

/* ---- the history ------------------------------------------------------------------------- */

static char fileBytes[65536];

static void history(void) {
    velcan_history* fromFile = NULL;
    velcan_history* fromMemory = NULL;
    velcan_history* newer = NULL;
    char* notes = NULL;
    size_t notesSize = 0;
    DWORD size = 0;
    HANDLE file;

    check(velcan_history_read_file(VELCAN_SAMPLE, &fromFile) == VELCAN_OK &&
              velcan_history_count(fromFile) == 12 &&
              startsWith(velcan_history_number(fromFile, 0), "4.2.0"),
          "reads the sample history from its file: 12 versions, 4.2.0 first");

    file = CreateFileA(VELCAN_SAMPLE, GENERIC_READ, 1, NULL, OPEN_EXISTING, 0, NULL);
    ReadFile(file, fileBytes, sizeof fileBytes, &size, NULL);
    CloseHandle(file);
    check(velcan_history_read_buffer(fileBytes, size, &fromMemory) == VELCAN_OK &&
              velcan_history_count(fromMemory) == 12 &&
              velcan_history_description_count(fromMemory, 0) == 3,
          "reads the same history from memory");

    check(velcan_history_newer_than(fromFile, "4.1.0", &newer) == VELCAN_OK &&
              velcan_history_count(newer) == 3 &&
              startsWith(velcan_history_number(newer, 2), "4.1.1"),
          "lists the 3 versions newer than 4.1.0");

    check(velcan_version_compare("2.10", "2.9") == 1 && velcan_version_compare("2.1", "2.1.0") == 0,
          "orders 2.10 after 2.9, and 2.1 as 2.1.0");

    check(velcan_history_notes(newer, VELCAN_NOTES_MARKDOWN, &notes, &notesSize) == VELCAN_OK &&
              startsWith(notes, "## 4.2.0 (2026-10-14)\n\n- Projects open") &&
              length(notes) == notesSize,
          "writes the newer versions as Markdown");
    velcan_free(notes);
    velcan_history_free(newer);
    velcan_history_free(fromMemory);
    velcan_history_free(fromFile);
}

/* ---- the runner ---------------------------------------------------------------------------- */

struct Output {
    char text[256];
    size_t size;
    HANDLE ready; /* set once the child said "ready" */
};

static int VELCAN_CALL gather(void* user, const char* bytes, size_t size) {
    struct Output* out = (struct Output*)user;
    size_t i;
    for (i = 0; i < size && out->size < sizeof out->text - 1; ++i) {
        out->text[out->size++] = bytes[i];
    }
    out->text[out->size] = '\0';
    if (out->ready != NULL && startsWith(out->text, "ready")) {
        SetEvent(out->ready);
    }
    return 0;
}

static velcan_cancel* theCancel;
static HANDLE theReady;

static DWORD WINAPI cancelWhenReady(void* unused) {
    (void)unused;
    WaitForSingleObject(theReady, INFINITE);
    velcan_cancel_trigger(theCancel);
    return 0;
}

static velcan_result runChild(const char* const* arguments, size_t count, double limit,
                              struct Output* out) {
    velcan_command* command = NULL;
    velcan_result result;
    memset(&result, 0, sizeof result);
    result.size = sizeof result;
    result.end = -1;
    if (velcan_command_new(&command) != VELCAN_OK) {
        return result;
    }
    velcan_command_set_arguments(command, arguments, count);
    velcan_command_set_time_limit(command, limit);
    velcan_command_set_output(command, gather, out);
    velcan_command_set_cancel(command, theCancel);
    velcan_command_run(command, &result);
    velcan_command_free(command);
    return result;
}

static void runner(void) {
    static const char* const hello[] = {VELCAN_CHILD, "out", "hello"};
    static const char* const sleeper[] = {VELCAN_CHILD, "sleep", "60000"};
    static const char* const readyThenSleep[] = {VELCAN_CHILD, "out", "ready", "sleep", "60000"};
    struct Output out;
    velcan_result result;
    HANDLE thread;

    memset(&out, 0, sizeof out);
    result = runChild(hello, 3, 0, &out);
    check(result.end == VELCAN_END_EXITED && result.code == 0 && startsWith(out.text, "hello") &&
              out.size == 5,
          "runs a command, its output through a callback");

    memset(&out, 0, sizeof out);
    result = runChild(sleeper, 3, 0.5, &out);
    check(result.end == VELCAN_END_TIMED_OUT, "ends a command at its time limit");

    check(velcan_cancel_new(&theCancel) == VELCAN_OK, "makes a cancel");
    theReady = CreateEventA(NULL, 1, 0, NULL);
    thread = CreateThread(NULL, 0, cancelWhenReady, NULL, 0, NULL);
    memset(&out, 0, sizeof out);
    out.ready = theReady;
    result = runChild(readyThenSleep, 5, 0, &out);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    CloseHandle(theReady);
    check(result.end == VELCAN_END_CANCELLED, "ends a command by a cancel from another thread");
    velcan_cancel_free(theCancel);
}

void mainCRTStartup(void) {
    history();
    runner();
    say(failed == 0 ? "all checks passed\n" : "some checks FAILED\n");
    ExitProcess((unsigned int)failed);
}
