// How the velcan tool opens the files it reads.
#ifndef VELCAN_TOOLS_INPUT_H
#define VELCAN_TOOLS_INPUT_H

#include <cstdio>
#include <string>

// Opens a file for reading in text mode, as the history reader does; "-" is standard input. A
// directory is refused (EISDIR). Returns the open file, or null with *reason saying why ("No
// such file or directory").
std::FILE* openForReading(const char* path, std::string* reason);

// How messages name a FILE argument: "(standard input)" for "-", else as given.
std::string shownName(const std::string& path);

// A file the library can open by name, holding the same bytes as `file` (open at its start).
// A regular file is its own path; anything else (a pipe, a FIFO, a terminal, standard input)
// can be read only once, so its bytes are copied into a temporary file first, removed again
// when this is destroyed.
class NamedCopy {
  public:
    NamedCopy() = default;
    NamedCopy(const NamedCopy&) = delete;
    NamedCopy& operator=(const NamedCopy&) = delete;
    ~NamedCopy();

    // Makes the name for `file`, given as `path`; false with *reason when the copy fails.
    bool make(std::FILE* file, const std::string& path, std::string* reason);
    const std::string& path() const { return path_; }

  private:
    std::string path_;
    bool temporary_ = false;
};

#endif
