#include "input.h"

#include <cerrno>
#include <cstdlib>
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

NamedCopy::~NamedCopy() {
    if (temporary_) {
        std::remove(path_.c_str());
    }
}

bool NamedCopy::make(std::FILE* file, const std::string& path, std::string* reason) {
    struct stat st;
    if (path != "-" && fstat(fileno(file), &st) == 0 && S_ISREG(st.st_mode)) {
        path_ = path;
        return true;
    }
#if defined(_WIN32)
    *reason = "only a regular file can be read here";
    return false;
#else
    const char* tmpdir = std::getenv("TMPDIR");
    const std::string dir = tmpdir != nullptr && *tmpdir != '\0' ? tmpdir : "/tmp";
    std::string name = dir + "/velcan-XXXXXX";
    const int fd = mkstemp(&name[0]);
    if (fd < 0) {
        *reason = "cannot make a temporary copy in " + dir +
                  (tmpdir != nullptr && *tmpdir != '\0' ? " (TMPDIR): " : ": ") +
                  std::strerror(errno);
        return false;
    }
    path_ = name;
    temporary_ = true;
    char buffer[65536];
    bool ok = true;
    for (size_t n; ok && (n = std::fread(buffer, 1, sizeof buffer, file)) > 0;) {
        for (size_t done = 0; ok && done < n;) {
            const ssize_t w = write(fd, buffer + done, n - done);
            if (w > 0) {
                done += static_cast<size_t>(w);
            } else if (w < 0 && errno != EINTR) {
                ok = false;
            }
        }
    }
    const int error = errno;
    ok = ok && !std::ferror(file);
    if (close(fd) != 0 || !ok) {
        *reason = std::string("cannot make a temporary copy: ") + std::strerror(error);
        return false;
    }
    // The caller reads the copy from here on: the original cannot be read again.
    if (std::freopen(name.c_str(), "r", file) == nullptr) {
        *reason = std::string("cannot read the temporary copy: ") + std::strerror(errno);
        return false;
    }
    return true;
#endif
}
