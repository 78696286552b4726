// Runs VelcanParseUpdateFile on fuzzer-made files.
//
// The reader leaves its file open after malformed XML, by design. So that a long run does not
// run out of descriptors and memory, this program wraps fopen and fclose and closes whatever
// the reader left open after each input.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <velcan/velcan.h>

namespace {
FILE* leftOpen = nullptr;

template <typename F> F real(const char* name) {
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

const std::string& inputPath() {
    static const std::string path = [] {
        char name[] = "/tmp/velcan-fuzz-history-XXXXXX";
        const int fd = mkstemp(name);
        if (fd < 0) {
            std::abort();
        }
        close(fd);
        return std::string(name);
    }();
    return path;
}
} // namespace

extern "C" FILE* fopen(const char* path, const char* mode) {
    static const auto open = real<FILE* (*)(const char*, const char*)>("fopen");
    FILE* file = open(path, mode);
    leftOpen = file;
    return file;
}

extern "C" int fclose(FILE* file) {
    static const auto close = real<int (*)(FILE*)>("fclose");
    if (file == leftOpen) {
        leftOpen = nullptr;
    }
    return close(file);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FILE* out = std::fopen(inputPath().c_str(), "wb");
    if (out == nullptr || std::fwrite(data, 1, size, out) != size) {
        std::abort();
    }
    std::fclose(out);

    const TUpdateVersionInfo info = VelcanParseUpdateFile(inputPath().c_str());
    size_t total = info.extraText.size();
    for (const TUpdateVersion& v : info.versions) {
        total += v.number.size() + v.date.size();
        for (const std::string& d : v.featureDescriptions) {
            total += d.size();
        }
    }
    if (!info.extraText.empty() || total > size * 4 + 64) {
        std::abort(); // more text than the file could hold, or extraText filled
    }
    if (leftOpen != nullptr) {
        std::fclose(leftOpen);
    }
    return 0;
}
