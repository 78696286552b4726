#include "input.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

std::FILE* openForReading(const char* path, std::string* reason) {
    std::FILE* file =
        std::strcmp(path, "-") == 0 ? fdopen(dup(STDIN_FILENO), "r") : std::fopen(path, "r");
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

std::string shownName(const std::string& path) {
    return path == "-" ? "(standard input)" : path;
}

bool isRegularFile(std::FILE* file, const std::string& path) {
    struct stat st;
    return path != "-" && fstat(fileno(file), &st) == 0 && S_ISREG(st.st_mode);
}

bool readWhole(std::FILE* file, std::string* bytes, std::string* reason) {
    char buffer[65536];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, file)) > 0;) {
        bytes->append(buffer, n);
    }
    if (std::ferror(file)) {
        *reason = std::strerror(errno);
        return false;
    }
    return true;
}
