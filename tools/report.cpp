#include "report.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>

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

std::FILE* openForReading(const char* path, std::string* reason) {
    std::FILE* file = std::fopen(path, "r");
    if (file == nullptr) {
        *reason = std::strerror(errno);
        return nullptr;
    }
    struct stat st;
    if (fstat(fileno(file), &st) == 0 && S_ISDIR(st.st_mode)) {
        std::fclose(file);
        *reason = std::strerror(EISDIR);
        return nullptr;
    }
    return file;
}
