#include "start_failure.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#if defined(_WIN32)

std::string whyNotStarted(const char*, int error) {
    return std::strerror(error); // Windows' own lookup has its own codes; they say it already
}

#else

#include <sys/stat.h>
#include <unistd.h>

namespace {

// The file the program name stands for: itself when it holds a slash, else the first entry of
// PATH that exists, as the system's lookup finds it; empty when there is none.
std::string locate(const std::string& program) {
    if (program.find('/') != std::string::npos) {
        return program;
    }
    const char* path = std::getenv("PATH");
    std::string dirs = path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin";
    std::size_t start = 0;
    while (start <= dirs.size()) {
        std::size_t end = dirs.find(':', start);
        if (end == std::string::npos) {
            end = dirs.size();
        }
        std::string dir = dirs.substr(start, end - start);
        const std::string candidate = (dir.empty() ? std::string(".") : dir) + "/" + program;
        struct stat st;
        if (stat(candidate.c_str(), &st) == 0) {
            return candidate;
        }
        start = end + 1;
    }
    return std::string();
}

// The interpreter a "#!" line names, or empty.
std::string interpreterOf(const std::string& file) {
    std::FILE* f = std::fopen(file.c_str(), "rb");
    if (f == nullptr) {
        return std::string();
    }
    char line[256] = {};
    const bool read = std::fgets(line, sizeof line, f) != nullptr;
    std::fclose(f);
    if (!read || line[0] != '#' || line[1] != '!') {
        return std::string();
    }
    const char* begin = line + 2;
    begin += std::strspn(begin, " \t");
    return std::string(begin, std::strcspn(begin, " \t\r\n"));
}

} // namespace

std::string whyNotStarted(const char* program, int error) {
    const std::string file = locate(program);
    struct stat st;
    const bool exists = !file.empty() && stat(file.c_str(), &st) == 0;
    if (error == ENOENT && exists) {
        const std::string interpreter = interpreterOf(file);
        if (!interpreter.empty() && access(interpreter.c_str(), X_OK) != 0) {
            return "its interpreter " + interpreter + " was not found";
        }
    }
    if (error == EACCES && exists) {
        if (S_ISDIR(st.st_mode)) {
            return file + " is a directory";
        }
        if (access(file.c_str(), X_OK) != 0) {
            return file + " is not executable (no execute permission)";
        }
    }
    if (error == ENOENT && file.empty() && std::strchr(program, '/') == nullptr) {
        return "no such program in PATH";
    }
    return std::strerror(error);
}

#endif
