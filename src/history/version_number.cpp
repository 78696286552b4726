#include "velcan/history/version_number.h"

#include <cstring>

#include "history/ascii.h"

namespace {

// A run of bytes inside a text being compared; nothing is copied.
struct Span {
    const char* begin;
    const char* end;
    bool empty() const { return begin == end; }
};

bool isIdentifierByte(char c) {
    return isAsciiLetterOrDigit(c) || c == '-';
}

bool allDigits(Span s) {
    for (const char* p = s.begin; p != s.end; ++p) {
        if (!isAsciiDigit(*p)) {
            return false;
        }
    }
    return !s.empty();
}

// A version number taken apart: its release numbers and its pre-release parts, each a run of
// dot-separated parts.
struct Parsed {
    bool valid;
    Span release;
    Span prerelease; // empty when there is none
};

// Reads dot-separated parts, each made of bytes that pass `accepts`, from *at; stops at the
// first byte that is neither. False when a part is empty.
template <typename Accepts>
bool readParts(const char** at, const char* end, Accepts accepts, Span* parts) {
    const char* p = *at;
    parts->begin = p;
    for (;;) {
        const char* partStart = p;
        while (p != end && accepts(*p)) {
            ++p;
        }
        if (p == partStart) {
            return false;
        }
        if (p == end || *p != '.') {
            break;
        }
        ++p;
    }
    parts->end = p;
    *at = p;
    return true;
}

Parsed parse(const char* text) {
    Parsed r = {false, {nullptr, nullptr}, {nullptr, nullptr}};
    if (text == nullptr) {
        return r;
    }
    const char* p = text;
    const char* end = text + std::strlen(text);
    while (p != end && *p == ' ') {
        ++p;
    }
    while (end != p && end[-1] == ' ') {
        --end;
    }
    if (p != end && (*p == 'v' || *p == 'V')) {
        ++p;
    }
    if (!readParts(&p, end, isAsciiDigit, &r.release)) {
        return r;
    }
    // A pre-release after "-", or written straight after the release's last number
    // ("3.1b10" is "3.1-b10").
    if (p != end && (*p == '-' || isAsciiLetter(*p))) {
        p += *p == '-' ? 1 : 0;
        if (!readParts(&p, end, isIdentifierByte, &r.prerelease)) {
            return r;
        }
    }
    if (p != end && *p == '+') {
        ++p;
        Span build = {nullptr, nullptr};
        if (!readParts(&p, end, isIdentifierByte, &build)) {
            return r;
        }
    }
    r.valid = p == end;
    return r;
}

// The next dot-separated part of *rest (which it then leaves after the dot), or an empty span
// when *rest is used up.
Span nextPart(Span* rest) {
    Span part = {rest->begin, rest->begin};
    while (part.end != rest->end && *part.end != '.') {
        ++part.end;
    }
    rest->begin = part.end == rest->end ? part.end : part.end + 1;
    return part;
}

int sign(long long n) {
    return n < 0 ? -1 : (n > 0 ? 1 : 0);
}

// Two runs of digits as numbers, of any length: an empty run is zero.
int compareNumbers(Span a, Span b) {
    while (a.begin != a.end && *a.begin == '0') {
        ++a.begin;
    }
    while (b.begin != b.end && *b.begin == '0') {
        ++b.begin;
    }
    const long long lengths = (a.end - a.begin) - (b.end - b.begin);
    if (lengths != 0) {
        return sign(lengths);
    }
    return sign(std::memcmp(a.begin, b.begin, static_cast<std::size_t>(a.end - a.begin)));
}

// Two runs of bytes in byte order, a prefix first.
int compareBytes(Span a, Span b) {
    const std::size_t na = static_cast<std::size_t>(a.end - a.begin);
    const std::size_t nb = static_cast<std::size_t>(b.end - b.begin);
    const int c = std::memcmp(a.begin, b.begin, na < nb ? na : nb);
    return c != 0 ? sign(c) : sign(static_cast<long long>(na) - static_cast<long long>(nb));
}

int compareReleases(Span a, Span b) {
    while (!a.empty() || !b.empty()) {
        if (const int c = compareNumbers(nextPart(&a), nextPart(&b))) {
            return c;
        }
    }
    return 0;
}

// The next run of *rest that is all digits or has none, which it then leaves.
Span nextRun(Span* rest) {
    Span run = {rest->begin, rest->begin};
    const bool digits = run.end != rest->end && isAsciiDigit(*run.end);
    while (run.end != rest->end && isAsciiDigit(*run.end) == digits) {
        ++run.end;
    }
    rest->begin = run.end;
    return run;
}

// Two texts as people read them: run by run, digits as numbers and the rest in byte order, a
// run of digits before one of other bytes ("rc9" < "rc10", "beta2" < "beta11"), and fewer
// runs first when all agree.
int compareTexts(Span a, Span b) {
    while (!a.empty() && !b.empty()) {
        const Span ra = nextRun(&a);
        const Span rb = nextRun(&b);
        const bool aDigits = isAsciiDigit(*ra.begin);
        const bool bDigits = isAsciiDigit(*rb.begin);
        const int c = aDigits != bDigits ? (aDigits ? -1 : 1)
                      : aDigits          ? compareNumbers(ra, rb)
                                         : compareBytes(ra, rb);
        if (c != 0) {
            return c;
        }
    }
    return a.empty() == b.empty() ? 0 : (a.empty() ? -1 : 1);
}

// A number before a text; two numbers as numbers; two texts as people read them.
int comparePrereleasePart(Span a, Span b) {
    const bool aNumber = allDigits(a);
    const bool bNumber = allDigits(b);
    if (aNumber && bNumber) {
        return compareNumbers(a, b);
    }
    if (aNumber != bNumber) {
        return aNumber ? -1 : 1;
    }
    return compareTexts(a, b);
}

// No pre-release comes after any; otherwise part by part, fewer parts first.
int comparePrereleases(Span a, Span b) {
    if (a.empty() || b.empty()) {
        return a.empty() == b.empty() ? 0 : (a.empty() ? 1 : -1);
    }
    while (!a.empty() && !b.empty()) {
        if (const int c = comparePrereleasePart(nextPart(&a), nextPart(&b))) {
            return c;
        }
    }
    return a.empty() == b.empty() ? 0 : (a.empty() ? -1 : 1);
}

} // namespace

bool VelcanIsVersionNumber(const char* text) {
    return parse(text).valid;
}

int VelcanCompareVersions(const char* a, const char* b) {
    const Parsed pa = parse(a);
    const Parsed pb = parse(b);
    if (!pa.valid || !pb.valid) {
        if (pa.valid != pb.valid) {
            return pa.valid ? 1 : -1;
        }
        return sign(std::strcmp(a == nullptr ? "" : a, b == nullptr ? "" : b));
    }
    if (const int c = compareReleases(pa.release, pb.release)) {
        return c;
    }
    return comparePrereleases(pa.prerelease, pb.prerelease);
}

TUpdateVersionInfo VelcanVersionsNewerThan(const TUpdateVersionInfo& info, const char* installed) {
    TUpdateVersionInfo newer;
    newer.extraText = info.extraText;
    for (const TUpdateVersion& version : info.versions) {
        if (VelcanCompareVersions(version.number.c_str(), installed) > 0) {
            newer.versions.push_back(version);
        }
    }
    return newer;
}

int VelcanNewestVersion(const TUpdateVersionInfo& info) {
    int newest = -1;
    for (std::size_t i = 0; i < info.versions.size(); ++i) {
        if (newest < 0 || VelcanCompareVersions(
                              info.versions[i].number.c_str(),
                              info.versions[static_cast<std::size_t>(newest)].number.c_str()) > 0) {
            newest = static_cast<int>(i);
        }
    }
    return newest;
}
