// Files made for a test and removed when it ends.
#ifndef VELCAN_TESTS_TEMP_FILE_H
#define VELCAN_TESTS_TEMP_FILE_H

#include <cstdio>
#include <cstdlib>
#include <string>

#include <unistd.h>

class TempFile {
  public:
    explicit TempFile(const std::string& content) {
        char name[] = "/tmp/velcan-test-XXXXXX";
        const int fd = mkstemp(name);
        if (fd < 0) {
            std::abort();
        }
        path_ = name;
        std::size_t done = 0;
        while (done < content.size()) {
            const ssize_t n = write(fd, content.data() + done, content.size() - done);
            if (n <= 0) {
                std::abort();
            }
            done += static_cast<std::size_t>(n);
        }
        close(fd);
    }
    ~TempFile() { unlink(path_.c_str()); }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    const char* path() const { return path_.c_str(); }

  private:
    std::string path_;
};

#endif
