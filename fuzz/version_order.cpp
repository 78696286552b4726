// The version order on random texts: no crash, and a total order. The input is split at its
// first two NULs into three texts a, b and c, which must compare antisymmetrically and
// transitively, and agree with whether each is a version number.
#include <cstdint>
#include <cstdlib>
#include <string>

#include <velcan/velcan.h>

namespace {

int sign(int n) {
    return n < 0 ? -1 : (n > 0 ? 1 : 0);
}

int compare(const std::string& a, const std::string& b) {
    return sign(VelcanCompareVersions(a.c_str(), b.c_str()));
}

void check(bool holds) {
    if (!holds) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    std::string texts[3];
    std::size_t at = 0;
    for (int i = 0; i < 3; ++i) {
        const std::size_t end = i < 2 ? input.find('\0', at) : std::string::npos;
        texts[i] = input.substr(at, end == std::string::npos ? std::string::npos : end - at);
        if (end == std::string::npos) {
            break;
        }
        at = end + 1;
    }
    for (const std::string& a : texts) {
        check(compare(a, a) == 0);
        for (const std::string& b : texts) {
            check(compare(a, b) == -compare(b, a));
            // A version number comes after every text that is not one.
            const bool va = VelcanIsVersionNumber(a.c_str());
            const bool vb = VelcanIsVersionNumber(b.c_str());
            if (va != vb) {
                check(compare(a, b) == (va ? 1 : -1));
            }
            for (const std::string& c : texts) {
                if (compare(a, b) <= 0 && compare(b, c) <= 0) {
                    const bool strict = compare(a, b) < 0 || compare(b, c) < 0;
                    check(strict ? compare(a, c) < 0 : compare(a, c) == 0);
                }
            }
        }
    }
    return 0;
}
