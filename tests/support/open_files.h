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
#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <cstdlib>
#include <set>
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

// The descriptors a process has open, as numbers (the listing's own one included when the
// process is this one).
inline std::set<int> descriptorsOf(pid_t pid) {
    std::set<int> fds;
    const std::string dir = "/proc/" + std::to_string(pid) + "/fd";
    if (DIR* d = opendir(dir.c_str())) {
        for (const dirent* entry = readdir(d); entry != nullptr; entry = readdir(d)) {
            if (entry->d_name[0] != '.') {
                fds.insert(std::atoi(entry->d_name));
            }
        }
        closedir(d);
    }
    return fds;
}

// What a descriptor of a process refers to ("pipe:[1234]", "/dev/null"), or "" when it is
// gone.
inline std::string linkOf(pid_t pid, int fd) {
    char target[PATH_MAX];
    const std::string path = "/proc/" + std::to_string(pid) + "/fd/" + std::to_string(fd);
    const ssize_t n = readlink(path.c_str(), target, sizeof target);
    return n > 0 ? std::string(target, static_cast<size_t>(n)) : std::string();
}

// The descriptors of this process that a child it starts would inherit.
inline std::set<int> inheritableDescriptors() {
    std::set<int> fds;
    for (const int fd : descriptorsOf(getpid())) {
        const int flags = fcntl(fd, F_GETFD);
        if (flags != -1 && (flags & FD_CLOEXEC) == 0) {
            fds.insert(fd);
        }
    }
    return fds;
}

// The pipes and null devices another process holds beyond the descriptors allowed: each one
// is a run's, inherited while that run was starting.
inline int runDescriptorsHeldBy(pid_t pid, const std::set<int>& allowed) {
    int held = 0;
    for (const int fd : descriptorsOf(pid)) {
        const std::string target = linkOf(pid, fd);
        if ((target.compare(0, 5, "pipe:") == 0 || target == "/dev/null") &&
            allowed.count(fd) == 0) {
            ++held;
        }
    }
    return held;
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
