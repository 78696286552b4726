/* The C interface, call by call, from C. Each test_NAME function is the ctest test c.NAME:
     c_api_test NAME
   VELCAN_SAMPLE is the sample history, VELCAN_CHILD the runner's test child, VELCAN_DIRECTORY an
   empty directory named velcan-c-directory. */
#if !defined(_WIN32)
#define _POSIX_C_SOURCE 200809L
#endif
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <velcan/c.h>

#if defined(_WIN32)
#include <io.h>
#include <windows.h>
#else
#include <dirent.h>
#include <pthread.h>
#include <unistd.h>
#endif

static int failures = 0;

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            fprintf(stderr, "%s:%d: failed: %s (last error: %s)\n", __FILE__, __LINE__,            \
                    #condition, velcan_last_error());                                              \
            ++failures;                                                                            \
        }                                                                                          \
    } while (0)

/* ---- helpers -------------------------------------------------------------------------- */

static char* fileBytes(const char* path, size_t* size) {
    FILE* file = fopen(path, "rb");
    char* bytes = malloc(1 << 20);
    *size = file != NULL ? fread(bytes, 1, 1 << 20, file) : 0;
    if (file != NULL) {
        fclose(file);
    }
    return bytes;
}

/* What a run's callback gathered, and when to stop. */
struct Gathered {
    char text[4096];
    size_t size;
    int stopAfter; /* pieces; 0: never */
    int pieces;
};

static int VELCAN_CALL gather(void* user, const char* bytes, size_t size) {
    struct Gathered* g = (struct Gathered*)user;
    size_t room = sizeof g->text - 1 - g->size;
    memcpy(g->text + g->size, bytes, size < room ? size : room);
    g->size += size < room ? size : room;
    g->text[g->size] = '\0';
    ++g->pieces;
    return g->stopAfter != 0 && g->pieces >= g->stopAfter;
}

static velcan_command* childCommand(const char* a, const char* b, const char* c) {
    const char* arguments[4];
    size_t count = 1;
    velcan_command* command = NULL;
    arguments[0] = VELCAN_CHILD;
    if (a != NULL) {
        arguments[count++] = a;
    }
    if (b != NULL) {
        arguments[count++] = b;
    }
    if (c != NULL) {
        arguments[count++] = c;
    }
    CHECK(velcan_command_new(&command) == VELCAN_OK);
    CHECK(velcan_command_set_arguments(command, arguments, count) == VELCAN_OK);
    return command;
}

static velcan_result run(velcan_command* command, velcan_status expected) {
    velcan_result result;
    memset(&result, 0, sizeof result);
    result.size = sizeof result;
    CHECK(velcan_command_run(command, &result) == expected);
    return result;
}

/* A thread that waits for a flag, then triggers a cancel. */
struct Canceller {
    velcan_cancel* cancel;
    int ready;
#if defined(_WIN32)
    HANDLE event;
    HANDLE thread;
#else
    pthread_mutex_t lock;
    pthread_cond_t changed;
    pthread_t thread;
#endif
};

#if defined(_WIN32)
static DWORD WINAPI cancelWhenReady(void* p) {
    struct Canceller* c = (struct Canceller*)p;
    WaitForSingleObject(c->event, INFINITE);
    velcan_cancel_trigger(c->cancel);
    return 0;
}
static void startCanceller(struct Canceller* c) {
    c->event = CreateEventA(NULL, TRUE, FALSE, NULL);
    c->thread = CreateThread(NULL, 0, cancelWhenReady, c, 0, NULL);
}
static void setReady(struct Canceller* c) {
    SetEvent(c->event);
}
static void joinCanceller(struct Canceller* c) {
    WaitForSingleObject(c->thread, INFINITE);
    CloseHandle(c->thread);
    CloseHandle(c->event);
}
#else
static void* cancelWhenReady(void* p) {
    struct Canceller* c = (struct Canceller*)p;
    pthread_mutex_lock(&c->lock);
    while (!c->ready) {
        pthread_cond_wait(&c->changed, &c->lock);
    }
    pthread_mutex_unlock(&c->lock);
    velcan_cancel_trigger(c->cancel);
    return NULL;
}
static void startCanceller(struct Canceller* c) {
    c->ready = 0;
    pthread_mutex_init(&c->lock, NULL);
    pthread_cond_init(&c->changed, NULL);
    pthread_create(&c->thread, NULL, cancelWhenReady, c);
}
static void setReady(struct Canceller* c) {
    pthread_mutex_lock(&c->lock);
    c->ready = 1;
    pthread_cond_signal(&c->changed);
    pthread_mutex_unlock(&c->lock);
}
static void joinCanceller(struct Canceller* c) {
    pthread_join(c->thread, NULL);
    pthread_mutex_destroy(&c->lock);
    pthread_cond_destroy(&c->changed);
}
#endif

/* Lets the canceller go once the child said it is ready. */
static int VELCAN_CALL readyThenCancel(void* user, const char* bytes, size_t size) {
    if (size > 0 && memchr(bytes, 'r', size) != NULL) {
        setReady((struct Canceller*)user);
    }
    return 0;
}

/* ---- last error and freeing --------------------------------------------------------------- */

static void test_last_error_is_empty_before_any_failure(void) {
    CHECK(strcmp(velcan_last_error(), "") == 0);
}

static void test_null_where_a_value_is_needed_is_refused_with_its_name(void) {
    velcan_history* history = NULL;
    CHECK(velcan_history_read_buffer(NULL, 5, &history) == VELCAN_ERROR_ARGUMENT);
    CHECK(history == NULL);
    CHECK(strcmp(velcan_last_error(), "data is null") == 0);
    CHECK(velcan_history_read_file(VELCAN_SAMPLE, NULL) == VELCAN_ERROR_ARGUMENT);
    CHECK(velcan_command_new(NULL) == VELCAN_ERROR_ARGUMENT);
    CHECK(velcan_cancel_new(NULL) == VELCAN_ERROR_ARGUMENT);
}

static void test_freeing_null_is_nothing(void) {
    velcan_free(NULL);
    velcan_history_free(NULL);
    velcan_command_free(NULL);
    velcan_cancel_free(NULL);
    velcan_cancel_trigger(NULL);
    velcan_cancel_reset(NULL);
}

#if defined(_WIN32)
static DWORD WINAPI failOnAThread(void* unused) {
    velcan_history* history = NULL;
    (void)unused;
    velcan_history_read_file("/nonexistent/other-thread.xml", &history);
    return strstr(velcan_last_error(), "other-thread") != NULL ? 0 : 1;
}
#else
static void* failOnAThread(void* unused) {
    velcan_history* history = NULL;
    (void)unused;
    velcan_history_read_file("/nonexistent/other-thread.xml", &history);
    return strstr(velcan_last_error(), "other-thread") != NULL ? NULL : (void*)1;
}
#endif

static void test_last_error_is_each_threads_own(void) {
    velcan_history* history = NULL;
    CHECK(velcan_history_read_file("/nonexistent/this-thread.xml", &history) == VELCAN_ERROR_FILE);
#if defined(_WIN32)
    {
        DWORD code = 1;
        HANDLE thread = CreateThread(NULL, 0, failOnAThread, NULL, 0, NULL);
        WaitForSingleObject(thread, INFINITE);
        GetExitCodeThread(thread, &code);
        CloseHandle(thread);
        CHECK(code == 0);
    }
#else
    {
        pthread_t thread;
        void* outcome = (void*)1;
        pthread_create(&thread, NULL, failOnAThread, NULL);
        pthread_join(thread, &outcome);
        CHECK(outcome == NULL);
    }
#endif
    CHECK(strstr(velcan_last_error(), "this-thread") != NULL);
}

/* ---- version numbers ---------------------------------------------------------------------- */

static void test_version_is_valid_tells_version_numbers(void) {
    CHECK(velcan_version_is_valid("2.10") == 1);
    CHECK(velcan_version_is_valid("2.0-rc.1") == 1);
    CHECK(velcan_version_is_valid("2.") == 0);
    CHECK(velcan_version_is_valid(NULL) == 0);
}

static void test_version_compare_orders_as_people_read(void) {
    CHECK(velcan_version_compare("2.10", "2.9") == 1);
    CHECK(velcan_version_compare("2.9", "2.10") == -1);
    CHECK(velcan_version_compare("2.1", "2.1.0") == 0);
    CHECK(velcan_version_compare(NULL, "1") == -1);
}

/* ---- the history ---------------------------------------------------------------------- */

static void test_history_read_file_reads_the_sample(void) {
    velcan_history* history = NULL;
    CHECK(velcan_history_read_file(VELCAN_SAMPLE, &history) == VELCAN_OK);
    CHECK(velcan_history_count(history) == 12);
    CHECK(strcmp(velcan_history_number(history, 0), "4.2.0") == 0);
    CHECK(strcmp(velcan_history_date(history, 0), "2026-10-14") == 0);
    CHECK(velcan_history_description_count(history, 0) == 3);
    CHECK(strcmp(velcan_history_description(history, 0, 1),
                 "New export to PDF/A & SVG, with embedded fonts.") == 0);
    CHECK(velcan_history_newest(history) == 0);
    velcan_history_free(history);
}

static void test_history_read_buffer_gives_what_the_file_gives(void) {
    velcan_history* fromFile = NULL;
    velcan_history* fromMemory = NULL;
    size_t size = 0;
    size_t i;
    size_t d;
    char* bytes = fileBytes(VELCAN_SAMPLE, &size);
    CHECK(velcan_history_read_file(VELCAN_SAMPLE, &fromFile) == VELCAN_OK);
    CHECK(velcan_history_read_buffer(bytes, size, &fromMemory) == VELCAN_OK);
    free(bytes);
    CHECK(velcan_history_count(fromMemory) == velcan_history_count(fromFile));
    for (i = 0; i < velcan_history_count(fromFile); ++i) {
        CHECK(strcmp(velcan_history_number(fromMemory, i), velcan_history_number(fromFile, i)) ==
              0);
        CHECK(strcmp(velcan_history_date(fromMemory, i), velcan_history_date(fromFile, i)) == 0);
        CHECK(velcan_history_description_count(fromMemory, i) ==
              velcan_history_description_count(fromFile, i));
        for (d = 0; d < velcan_history_description_count(fromFile, i); ++d) {
            CHECK(strcmp(velcan_history_description(fromMemory, i, d),
                         velcan_history_description(fromFile, i, d)) == 0);
        }
    }
    velcan_history_free(fromFile);
    velcan_history_free(fromMemory);
}

static void test_history_read_file_of_a_missing_file_says_why(void) {
    velcan_history* history = (velcan_history*)&failures; /* overwritten with null */
    CHECK(velcan_history_read_file("/nonexistent/velcan.xml", &history) == VELCAN_ERROR_FILE);
    CHECK(history == NULL);
    CHECK(strstr(velcan_last_error(), "cannot open /nonexistent/velcan.xml: ") != NULL);
}

static void test_history_of_malformed_xml_has_no_versions(void) {
    static const char broken[] = "<History><Version number=\"1\"></History>";
    velcan_history* history = NULL;
    CHECK(velcan_history_read_buffer(broken, sizeof broken - 1, &history) ==
          VELCAN_ERROR_NO_VERSIONS);
    CHECK(history == NULL);
    CHECK(strstr(velcan_last_error(), "no versions") != NULL);
}

static int openDescriptors(void) {
    int count = 0;
#if defined(_WIN32)
    int fd;
    for (fd = 0; fd < 2048; ++fd) {
        count += _get_osfhandle(fd) != -1;
    }
#else
    DIR* fds = opendir("/proc/self/fd");
    while (fds != NULL && readdir(fds) != NULL) {
        ++count;
    }
    if (fds != NULL) {
        closedir(fds);
    }
#endif
    return count;
}

static void test_history_read_file_that_fails_leaves_nothing_open(void) {
    const char* path = VELCAN_DIRECTORY "/broken.xml";
    FILE* file = fopen(path, "wb");
    velcan_history* history = NULL;
    int before;
    CHECK(file != NULL && fwrite("<broken>", 1, 8, file) == 8);
    if (file != NULL) {
        fclose(file);
    }
    before = openDescriptors();
    CHECK(velcan_history_read_file(path, &history) == VELCAN_ERROR_NO_VERSIONS);
    CHECK(openDescriptors() == before);
    remove(path);
}

static void test_history_getters_out_of_range_give_null_and_zero(void) {
    velcan_history* history = NULL;
    CHECK(velcan_history_read_file(VELCAN_SAMPLE, &history) == VELCAN_OK);
    CHECK(velcan_history_number(history, 12) == NULL);
    CHECK(velcan_history_date(history, 99) == NULL);
    CHECK(velcan_history_description_count(history, 12) == 0);
    CHECK(velcan_history_description(history, 0, 3) == NULL);
    CHECK(velcan_history_description(history, 12, 0) == NULL);
    CHECK(velcan_history_count(NULL) == 0);
    CHECK(velcan_history_newest(NULL) == -1);
    CHECK(velcan_history_number(NULL, 0) == NULL);
    velcan_history_free(history);
}

static void test_history_newer_than_keeps_the_newer_versions_in_order(void) {
    velcan_history* history = NULL;
    velcan_history* newer = NULL;
    CHECK(velcan_history_read_file(VELCAN_SAMPLE, &history) == VELCAN_OK);
    CHECK(velcan_history_newer_than(history, "4.1.0", &newer) == VELCAN_OK);
    CHECK(velcan_history_count(newer) == 3);
    CHECK(strcmp(velcan_history_number(newer, 0), "4.2.0") == 0);
    CHECK(strcmp(velcan_history_number(newer, 2), "4.1.1") == 0);
    velcan_history_free(newer);
    CHECK(velcan_history_newer_than(history, "4.2.0", &newer) == VELCAN_OK);
    CHECK(velcan_history_count(newer) == 0);
    velcan_history_free(newer);
    CHECK(velcan_history_newer_than(history, "latest", &newer) == VELCAN_ERROR_ARGUMENT);
    CHECK(newer == NULL);
    CHECK(strcmp(velcan_last_error(), "'latest' is not a version number") == 0);
    velcan_history_free(history);
}

static void test_history_notes_are_written_in_each_format(void) {
    static const char* const starts[] = {"Version 4.2.0 (2026-10-14)\n", "## 4.2.0 (2026-10-14)\n",
                                         "<section class=\"version\">", "<!DOCTYPE html>",
                                         "{\"format\":1,"};
    velcan_history* history = NULL;
    int format;
    CHECK(velcan_history_read_file(VELCAN_SAMPLE, &history) == VELCAN_OK);
    for (format = VELCAN_NOTES_TEXT; format <= VELCAN_NOTES_JSON; ++format) {
        char* text = NULL;
        size_t size = 0;
        CHECK(velcan_history_notes(history, format, &text, &size) == VELCAN_OK);
        CHECK(text != NULL && strncmp(text, starts[format], strlen(starts[format])) == 0);
        CHECK(text != NULL && strlen(text) == size);
        velcan_free(text);
    }
    {
        char* text = NULL;
        size_t size = 0;
        CHECK(velcan_history_notes(history, 99, &text, &size) == VELCAN_ERROR_ARGUMENT);
        CHECK(text == NULL);
        CHECK(velcan_history_notes(history, -1, &text, &size) == VELCAN_ERROR_ARGUMENT);
        CHECK(text == NULL);
    }
    velcan_history_free(history);
}

/* ---- the runner ---------------------------------------------------------------------------- */

static void test_command_hands_output_to_the_callback(void) {
    struct Gathered g;
    velcan_command* command = childCommand("out", "hello\\n", NULL);
    velcan_result result;
    memset(&g, 0, sizeof g);
    CHECK(velcan_command_set_output(command, gather, &g) == VELCAN_OK);
    result = run(command, VELCAN_OK);
    CHECK(result.end == VELCAN_END_EXITED && result.code == 0);
    CHECK(strcmp(g.text, "hello\n") == 0);
    velcan_command_free(command);
}

static void test_command_line_is_taken_as_launch_blocking_process_takes_it(void) {
    struct Gathered g;
    velcan_command* command = NULL;
    velcan_result result;
    memset(&g, 0, sizeof g);
    CHECK(velcan_command_new(&command) == VELCAN_OK);
    CHECK(velcan_command_set_line(command, VELCAN_CHILD " args \"two words\" 100%%") == VELCAN_OK);
    CHECK(velcan_command_set_output(command, gather, &g) == VELCAN_OK);
    result = run(command, VELCAN_OK);
    CHECK(result.end == VELCAN_END_EXITED);
    CHECK(strcmp(g.text, "[two words][100%]") == 0);
    velcan_command_free(command);
}

static void test_command_error_callback_gets_standard_error_apart(void) {
    struct Gathered out;
    struct Gathered err;
    velcan_command* command = childCommand("out", "o", NULL);
    const char* arguments[5];
    arguments[0] = VELCAN_CHILD;
    arguments[1] = "out";
    arguments[2] = "o";
    arguments[3] = "err";
    arguments[4] = "e";
    memset(&out, 0, sizeof out);
    memset(&err, 0, sizeof err);
    CHECK(velcan_command_set_arguments(command, arguments, 5) == VELCAN_OK);
    CHECK(velcan_command_set_output(command, gather, &out) == VELCAN_OK);
    CHECK(velcan_command_set_error(command, gather, &err) == VELCAN_OK);
    run(command, VELCAN_OK);
    CHECK(strcmp(out.text, "o") == 0);
    CHECK(strcmp(err.text, "e") == 0);
    velcan_command_free(command);
}

static void test_command_exit_status_is_the_code(void) {
    velcan_command* command = childCommand("exit", "3", NULL);
    velcan_result result = run(command, VELCAN_OK);
    CHECK(result.end == VELCAN_END_EXITED && result.code == 3);
    velcan_command_free(command);
}

static void test_command_input_is_a_copy_of_the_bytes(void) {
    struct Gathered g;
    char input[4];
    velcan_command* command = childCommand("cat", NULL, NULL);
    memset(&g, 0, sizeof g);
    memcpy(input, "abc", 4);
    CHECK(velcan_command_set_input(command, input, 3) == VELCAN_OK);
    memcpy(input, "xyz", 4); /* the command kept its own copy */
    CHECK(velcan_command_set_output(command, gather, &g) == VELCAN_OK);
    run(command, VELCAN_OK);
    CHECK(strcmp(g.text, "abc") == 0);
    velcan_command_free(command);
}

static void test_command_directory_and_variables_reach_the_child(void) {
    struct Gathered g;
    velcan_command* command = childCommand("env", "VELCAN_C_SET", NULL);
    const char* arguments[6];
    arguments[0] = VELCAN_CHILD;
    arguments[1] = "env";
    arguments[2] = "VELCAN_C_SET";
    arguments[3] = "env";
    arguments[4] = "VELCAN_C_GONE";
    arguments[5] = "cwd";
    memset(&g, 0, sizeof g);
    CHECK(velcan_command_set_arguments(command, arguments, 6) == VELCAN_OK);
    CHECK(velcan_command_set_variable(command, "VELCAN_C_SET", "yes") == VELCAN_OK);
    CHECK(velcan_command_set_variable(command, "VELCAN_C_GONE", "no") == VELCAN_OK);
    CHECK(velcan_command_set_variable(command, "VELCAN_C_GONE", NULL) == VELCAN_OK);
    CHECK(velcan_command_set_directory(command, VELCAN_DIRECTORY) == VELCAN_OK);
    CHECK(velcan_command_set_output(command, gather, &g) == VELCAN_OK);
    run(command, VELCAN_OK);
    CHECK(strncmp(g.text, "yes\n(unset)\n", 12) == 0);
    CHECK(strstr(g.text, "velcan-c-directory") != NULL);
    velcan_command_free(command);
}

static void test_command_time_limit_ends_the_run(void) {
    velcan_command* command = childCommand("sleep", "60000", NULL);
    velcan_result result;
    CHECK(velcan_command_set_time_limit(command, 0.2) == VELCAN_OK);
    CHECK(velcan_command_set_grace(command, 0) == VELCAN_OK);
    result = run(command, VELCAN_OK);
    CHECK(result.end == VELCAN_END_TIMED_OUT);
    velcan_command_free(command);
}

static void test_command_refuses_a_negative_or_nan_time(void) {
    velcan_command* command = childCommand(NULL, NULL, NULL);
    double zero = 0;
    CHECK(velcan_command_set_time_limit(command, -1) == VELCAN_ERROR_ARGUMENT);
    CHECK(velcan_command_set_grace(command, -0.5) == VELCAN_ERROR_ARGUMENT);
    CHECK(velcan_command_set_time_limit(command, zero / zero) == VELCAN_ERROR_ARGUMENT);
    CHECK(strcmp(velcan_last_error(), "a time is negative or not a number") == 0);
    velcan_command_free(command);
}

static void test_command_cancel_from_another_thread_ends_the_run(void) {
    struct Canceller canceller;
    velcan_command* command = childCommand("out", "ready\\n", "sleep");
    const char* arguments[5];
    velcan_result result;
    arguments[0] = VELCAN_CHILD;
    arguments[1] = "out";
    arguments[2] = "ready\\n";
    arguments[3] = "sleep";
    arguments[4] = "60000";
    CHECK(velcan_cancel_new(&canceller.cancel) == VELCAN_OK);
    startCanceller(&canceller);
    CHECK(velcan_command_set_arguments(command, arguments, 5) == VELCAN_OK);
    CHECK(velcan_command_set_cancel(command, canceller.cancel) == VELCAN_OK);
    CHECK(velcan_command_set_output(command, readyThenCancel, &canceller) == VELCAN_OK);
    result = run(command, VELCAN_OK);
    joinCanceller(&canceller);
    CHECK(result.end == VELCAN_END_CANCELLED);
    velcan_command_free(command);
    velcan_cancel_free(canceller.cancel);
}

static void test_cancel_triggered_before_the_run_starts_nothing(void) {
    velcan_cancel* cancel = NULL;
    velcan_command* command = childCommand("out", "never", NULL);
    velcan_result result;
    CHECK(velcan_cancel_new(&cancel) == VELCAN_OK);
    velcan_cancel_trigger(cancel);
    CHECK(velcan_command_set_cancel(command, cancel) == VELCAN_OK);
    result = run(command, VELCAN_OK);
    CHECK(result.end == VELCAN_END_CANCELLED && result.code == 0 && result.error != 0);
    velcan_cancel_reset(cancel);
    result = run(command, VELCAN_OK);
    CHECK(result.end == VELCAN_END_EXITED);
    velcan_command_free(command);
    velcan_cancel_free(cancel);
}

static void test_callback_that_returns_nonzero_stops_the_run(void) {
    struct Gathered g;
    velcan_command* command = childCommand("out", "first\\n", "sleep");
    const char* arguments[5];
    velcan_result result;
    arguments[0] = VELCAN_CHILD;
    arguments[1] = "out";
    arguments[2] = "first\\n";
    arguments[3] = "sleep";
    arguments[4] = "60000";
    memset(&g, 0, sizeof g);
    g.stopAfter = 1;
    CHECK(velcan_command_set_arguments(command, arguments, 5) == VELCAN_OK);
    CHECK(velcan_command_set_output(command, gather, &g) == VELCAN_OK);
    result = run(command, VELCAN_ERROR_STOPPED_BY_CALLBACK);
    CHECK(result.end == VELCAN_END_CANCELLED);
    CHECK(strcmp(velcan_last_error(), "a callback ended the run") == 0);
    /* The stop was the run's alone: the next run goes on. */
    g.stopAfter = 0;
    CHECK(velcan_command_set_arguments(command, arguments, 3) == VELCAN_OK);
    result = run(command, VELCAN_OK);
    CHECK(result.end == VELCAN_END_EXITED);
    velcan_command_free(command);
}

static void test_callback_stop_leaves_the_callers_cancel_as_it_was(void) {
    struct Gathered g;
    velcan_cancel* cancel = NULL;
    velcan_command* command = childCommand("out", "x", NULL);
    velcan_result result;
    memset(&g, 0, sizeof g);
    g.stopAfter = 1;
    CHECK(velcan_cancel_new(&cancel) == VELCAN_OK);
    CHECK(velcan_command_set_cancel(command, cancel) == VELCAN_OK);
    CHECK(velcan_command_set_output(command, gather, &g) == VELCAN_OK);
    run(command, VELCAN_ERROR_STOPPED_BY_CALLBACK);
    CHECK(velcan_command_set_output(command, NULL, NULL) == VELCAN_OK);
    result = run(command, VELCAN_OK);
    CHECK(result.end == VELCAN_END_EXITED);
    velcan_command_free(command);
    velcan_cancel_free(cancel);
}

static void test_command_program_that_is_not_there_is_not_started(void) {
    const char* arguments[1];
    velcan_command* command = NULL;
    velcan_result result;
    arguments[0] = "/nonexistent/velcan-program";
    CHECK(velcan_command_new(&command) == VELCAN_OK);
    CHECK(velcan_command_set_arguments(command, arguments, 1) == VELCAN_OK);
    result = run(command, VELCAN_OK);
    CHECK(result.end == VELCAN_END_PROGRAM_NOT_STARTED && result.error != 0);
    velcan_command_free(command);
}

static void test_command_run_needs_the_results_size(void) {
    velcan_command* command = childCommand(NULL, NULL, NULL);
    velcan_result result;
    const char* arguments[2];
    arguments[0] = VELCAN_CHILD;
    arguments[1] = NULL;
    memset(&result, 0, sizeof result);
    CHECK(velcan_command_run(command, &result) == VELCAN_ERROR_ARGUMENT);
    CHECK(velcan_command_set_arguments(command, arguments, 2) == VELCAN_ERROR_ARGUMENT);
    CHECK(strcmp(velcan_last_error(), "an argument is null") == 0);
    velcan_command_free(command);
}

/* ---- main -------------------------------------------------------------------------------- */

struct Test {
    const char* name;
    void (*run)(void);
};

#define TEST(name)                                                                                 \
    { #name, test_##name }
static const struct Test tests[] = {
    TEST(last_error_is_empty_before_any_failure),
    TEST(null_where_a_value_is_needed_is_refused_with_its_name),
    TEST(freeing_null_is_nothing),
    TEST(last_error_is_each_threads_own),
    TEST(version_is_valid_tells_version_numbers),
    TEST(version_compare_orders_as_people_read),
    TEST(history_read_file_reads_the_sample),
    TEST(history_read_buffer_gives_what_the_file_gives),
    TEST(history_read_file_of_a_missing_file_says_why),
    TEST(history_of_malformed_xml_has_no_versions),
    TEST(history_read_file_that_fails_leaves_nothing_open),
    TEST(history_getters_out_of_range_give_null_and_zero),
    TEST(history_newer_than_keeps_the_newer_versions_in_order),
    TEST(history_notes_are_written_in_each_format),
    TEST(command_hands_output_to_the_callback),
    TEST(command_line_is_taken_as_launch_blocking_process_takes_it),
    TEST(command_error_callback_gets_standard_error_apart),
    TEST(command_exit_status_is_the_code),
    TEST(command_input_is_a_copy_of_the_bytes),
    TEST(command_directory_and_variables_reach_the_child),
    TEST(command_time_limit_ends_the_run),
    TEST(command_refuses_a_negative_or_nan_time),
    TEST(command_cancel_from_another_thread_ends_the_run),
    TEST(cancel_triggered_before_the_run_starts_nothing),
    TEST(callback_that_returns_nonzero_stops_the_run),
    TEST(callback_stop_leaves_the_callers_cancel_as_it_was),
    TEST(command_program_that_is_not_there_is_not_started),
    TEST(command_run_needs_the_results_size),
};

int main(int argc, char** argv) {
    size_t i;
    int ran = 0;
    for (i = 0; i < sizeof tests / sizeof tests[0]; ++i) {
        if (argc < 2 || strcmp(argv[1], tests[i].name) == 0) {
            tests[i].run();
            ++ran;
        }
    }
    if (ran == 0) {
        fprintf(stderr, "no test named %s\n", argv[1]);
        return 2;
    }
    return failures == 0 ? 0 : 1;
}
