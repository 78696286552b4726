#include "report.h"

#include <cerrno>
#include <cstring>

void reportError(const std::string& message) {
    std::fprintf(stderr, "velcan: %s\n", message.c_str());
}

int usageError(const std::string& message) {
    reportError(message + " (try 'velcan --help')");
    return kExitUsage;
}

bool isOption(const char* arg) {
    return arg[0] == '-' && arg[1] != '\0';
}

bool writeOut(const std::string& text) {
    errno = 0;
    const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (std::fflush(stdout) == 0 && written) {
        return true;
    }
    reportError(std::string("cannot write the output: ") +
                (errno != 0 ? std::strerror(errno) : "write error"));
    return false;
}
