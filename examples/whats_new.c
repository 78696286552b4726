/* The "What's new" of whats_new.cpp, in C through velcan's C interface.
     whats_new_c INSTALLED_VERSION [FILE] */
#include <stdio.h>

#include <velcan/c.h>

/* Prints a description on one line: each run of blanks and line breaks one space. */
static void printOneLine(const char* text) {
    int pending = 0;
    for (; *text != '\0'; ++text) {
        if (*text == ' ' || *text == '\t' || *text == '\r' || *text == '\n') {
            pending = 1;
            continue;
        }
        if (pending) {
            putchar(' ');
            pending = 0;
        }
        putchar(*text);
    }
}

int main(int argc, char** argv) {
    const char* installed = argc > 1 ? argv[1] : "4.1.0";
    velcan_history* history = NULL;
    velcan_history* news = NULL;
    size_t i;
    size_t d;
    if (velcan_history_read_file(argc > 2 ? argv[2] : "version-history.xml", &history) !=
            VELCAN_OK ||
        velcan_history_newer_than(history, installed, &news) != VELCAN_OK) {
        fprintf(stderr, "%s\n", velcan_last_error());
        velcan_history_free(history);
        return velcan_version_is_valid(installed) ? 1 : 2;
    }
    if (velcan_history_count(news) == 0) {
        printf("%s is the newest version.\n", installed);
    } else {
        printf("What's new from %s to %s:\n", installed,
               velcan_history_number(news, (size_t)velcan_history_newest(news)));
    }
    for (i = 0; i < velcan_history_count(news); ++i) {
        printf("\n%s (%s)\n", velcan_history_number(news, i), velcan_history_date(news, i));
        for (d = 0; d < velcan_history_description_count(news, i); ++d) {
            printf("  - ");
            printOneLine(velcan_history_description(news, i, d));
            putchar('\n');
        }
    }
    velcan_history_free(news);
    velcan_history_free(history);
    return 0;
}
