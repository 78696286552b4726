// The files this process holds open.
#ifndef VELCAN_TESTS_OPEN_FILES_H
#define VELCAN_TESTS_OPEN_FILES_H

#include <cstdio>
#include <string>

#if defined(_WIN32)
#include <io.h>
#include <windows.h>
#else
#include <dirent.h>
#include <limits.h>
#include <unistd.h>
#endif

#if defined(_WIN32)

// The number of C runtime descriptors this process has open.
inline int openDescriptorCount() {
    int count = 0;
    for (int fd = 0; fd < 2048; ++fd) {
        if (_get_osfhandle(fd) != -1) {
            ++count;
        }
    }
    return count;
}

// Closes the descriptor this process holds open on path, if any; true when one was found.
inline bool closeDescriptorOn(const char* path) {
    HANDLE wanted = CreateFileA(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (wanted == INVALID_HANDLE_VALUE) {
        return false;
    }
    BY_HANDLE_FILE_INFORMATION target;
    const bool known = GetFileInformationByHandle(wanted, &target) != 0;
    CloseHandle(wanted);
    for (int fd = 3; known && fd < 2048; ++fd) {
        const intptr_t handle = _get_osfhandle(fd);
        BY_HANDLE_FILE_INFORMATION info;
        if (handle != -1 && GetFileInformationByHandle(reinterpret_cast<HANDLE>(handle), &info) &&
            info.dwVolumeSerialNumber == target.dwVolumeSerialNumber &&
            info.nFileIndexHigh == target.nFileIndexHigh &&
            info.nFileIndexLow == target.nFileIndexLow) {
            _close(fd);
            return true;
        }
    }
    return false;
}

#else

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

// Closes the descriptor this process holds open on path, if any; true when one was found.
inline bool closeDescriptorOn(const char* path) {
    for (int fd = 3; fd < 1024; ++fd) {
        char link[64];
        char target[PATH_MAX];
        std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
        const ssize_t n = readlink(link, target, sizeof target - 1);
        if (n > 0) {
            target[n] = '\0';
            if (std::string(target) == path) {
                close(fd);
                return true;
            }
        }
    }
    return false;
}

#endif

#endif
