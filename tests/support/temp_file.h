// Files made for a test and removed when it ends.
#ifndef VELCAN_TESTS_TEMP_FILE_H
#define VELCAN_TESTS_TEMP_FILE_H

#include <cstdio>
#include <cstdlib>
#include <string>

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/stat.h>
#include <unistd.h>
#endif

// A directory that exists and is not a file.
inline std::string existingDirectory() {
#if defined(_WIN32)
    char path[MAX_PATH + 1];
    const DWORD n = GetTempPathA(sizeof path, path);
    return n > 0 && n < sizeof path ? std::string(path, n) : std::string("C:\\");
#else
    return "/tmp";
#endif
}

class TempFile {
  public:
    explicit TempFile(const std::string& content) {
#if defined(_WIN32)
        char name[MAX_PATH + 1];
        if (GetTempFileNameA(existingDirectory().c_str(), "vlc", 0, name) == 0) {
            std::abort();
        }
        path_ = name;
#else
        char name[] = "/tmp/velcan-test-XXXXXX";
        const int fd = mkstemp(name);
        if (fd < 0) {
            std::abort();
        }
        close(fd);
        path_ = name;
#endif
        FILE* file = std::fopen(path_.c_str(), "wb");
        if (file == nullptr ||
            std::fwrite(content.data(), 1, content.size(), file) != content.size() ||
            std::fclose(file) != 0) {
            std::abort();
        }
    }
    ~TempFile() {
        std::remove(path_.c_str());
    }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    const char* path() const {
        return path_.c_str();
    }

  private:
    std::string path_;
};

#if !defined(_WIN32)
// An executable script with the given first line.
struct Script {
    explicit Script(const std::string& content) : file(content) { chmod(file.path(), 0700); }
    std::string path() const { return file.path(); }
    TempFile file;
};

// A directory of its own, removed with what is in it.
struct TempDir {
    TempDir() {
        char name[] = "/tmp/velcan-dir-XXXXXX";
        path = mkdtemp(name);
    }
    ~TempDir() { std::system(("rm -rf '" + path + "'").c_str()); }
    std::string path;
};
#endif

#endif
