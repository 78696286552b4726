// Runs the history reader on fuzzer-made bytes, from memory.
#include <cstdint>
#include <cstdlib>
#include <string>

#include <velcan/velcan.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const TUpdateVersionInfo info =
        VelcanParseUpdateBuffer(reinterpret_cast<const char*>(data), size);
    size_t total = info.extraText.size();
    for (const TUpdateVersion& v : info.versions) {
        total += v.number.size() + v.date.size();
        for (const std::string& d : v.featureDescriptions) {
            total += d.size();
        }
    }
    if (!info.extraText.empty() || total > size * 4 + 64) {
        std::abort(); // more text than the bytes could hold, or extraText filled
    }
    return 0;
}
