// Counting the process's open descriptors.
#ifndef VELCAN_TESTS_OPEN_FILES_H
#define VELCAN_TESTS_OPEN_FILES_H

#include <dirent.h>

// The number of descriptors this process has open (the listing's own one excluded).
inline int openDescriptorCount() {
    DIR* dir = opendir("/proc/self/fd");
    if (dir == nullptr) {
        return -1;
    }
    int count = 0;
    while (readdir(dir) != nullptr) {
        ++count;
    }
    closedir(dir);
    return count - 3; // ".", ".." and the listing's own descriptor
}

#endif
