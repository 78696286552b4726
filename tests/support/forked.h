// Runs a check in a forked child, for what must not touch the test program itself (closed
// standard descriptors, a lowered open-file limit). POSIX only.
#ifndef VELCAN_TESTS_SUPPORT_FORKED_H
#define VELCAN_TESTS_SUPPORT_FORKED_H

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

// Runs body in a forked child and returns the text it returned (by convention empty when
// every check held, otherwise what failed), or what went wrong with the child itself.
template <typename Body> std::string inForkedChild(Body body) {
    int report[2];
    if (pipe2(report, O_CLOEXEC) != 0) {
        return "no pipe for the report";
    }
    const pid_t pid = fork();
    if (pid < 0) {
        return "fork failed";
    }
    if (pid == 0) {
        close(report[0]);
        const std::string text = body();
        for (std::size_t at = 0; at < text.size();) {
            const ssize_t n = write(report[1], text.data() + at, text.size() - at);
            if (n <= 0) {
                break;
            }
            at += static_cast<std::size_t>(n);
        }
        _exit(0);
    }
    close(report[1]);
    std::string text;
    char piece[512];
    for (ssize_t n; (n = read(report[0], piece, sizeof piece)) > 0;) {
        text.append(piece, static_cast<std::size_t>(n));
    }
    close(report[0]);
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        text += "(the checking child did not end normally)";
    }
    return text;
}

#endif
