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

// Whether file, opened from path, is a regular file the library can open again by name
// (standard input, a pipe, a FIFO or a terminal can be read only once).
bool isRegularFile(std::FILE* file, const std::string& path);

// Appends what is left of file to *bytes; false with *reason on a read error.
bool readWhole(std::FILE* file, std::string* bytes, std::string* reason);

#endif
