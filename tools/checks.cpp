// The tool's own look at a file, to explain what the history reader cannot tell.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <sys/stat.h>

#include <velcan/velcan.h>

#include "commands.h"
#include "history/pieces.h"

void reportError(const std::string& message) {
    std::fprintf(stderr, "velcan: %s\n", message.c_str());
}

bool checkReadable(const char* path) {
    FILE* file = std::fopen(path, "r");
    if (file == nullptr) {
        reportError(std::string("cannot open ") + path + ": " + std::strerror(errno));
        return false;
    }
    struct stat st;
    const bool isDirectory = fstat(fileno(file), &st) == 0 && S_ISDIR(st.st_mode);
    std::fclose(file);
    if (isDirectory) {
        reportError(std::string("cannot open ") + path + ": " + std::strerror(EISDIR));
        return false;
    }
    return true;
}

bool checkWellFormed(const char* path) {
    FILE* file = std::fopen(path, "r");
    if (file == nullptr) {
        return checkReadable(path);
    }
    expatpp reader;
    const bool ok = velcan::feedInPieces(file, reader);
    std::fclose(file);
    if (!ok) {
        reportError(std::string(path) + ":" + std::to_string(reader.XML_GetCurrentLineNumber()) +
                    ": " + XML_ErrorString(reader.XML_GetErrorCode()));
    }
    return ok;
}
