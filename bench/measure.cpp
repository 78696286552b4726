#include "measure.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <vector>

namespace bench {
std::atomic<long> liveBytes(0);
std::atomic<long> peakBytes(0);
} // namespace bench

void* operator new(std::size_t size) {
    void* p = std::malloc(size + 16);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    *static_cast<std::size_t*>(p) = size;
    const long live = bench::liveBytes += static_cast<long>(size);
    long peak = bench::peakBytes;
    while (live > peak && !bench::peakBytes.compare_exchange_weak(peak, live)) {
    }
    return static_cast<char*>(p) + 16;
}
void operator delete(void* p) noexcept {
    if (p != nullptr) {
        char* base = static_cast<char*>(p) - 16;
        bench::liveBytes -= static_cast<long>(*reinterpret_cast<std::size_t*>(base));
        std::free(base);
    }
}
void operator delete(void* p, std::size_t) noexcept {
    operator delete(p);
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void operator delete[](void* p) noexcept {
    operator delete(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    operator delete(p);
}

namespace bench {

double seconds(const std::function<void()>& f) {
    const auto start = Clock::now();
    f();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

namespace {
int failures = 0;
} // namespace

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

Pair interleaved(int rounds, const std::function<double()>& measure,
                 const std::function<double()>& baseline) {
    std::vector<double> m, b;
    for (int r = 0; r < rounds; ++r) {
        if (r % 2 == 0) {
            b.push_back(baseline());
            m.push_back(measure());
        } else {
            m.push_back(measure());
            b.push_back(baseline());
        }
    }
    return {median(m), median(b)};
}

void row(const char* name, const std::string& measure, const std::string& baseline, double ratio,
         double target, const char* unit) {
    const bool pass = ratio <= target;
    failures += pass ? 0 : 1;
    std::printf("| %-44s | %-14s | %-14s | %7.3f%s | <= %.2f%s | %-4s |\n", name, measure.c_str(),
                baseline.c_str(), ratio, unit, target, unit, pass ? "pass" : "FAIL");
}

void info(const char* name, const std::string& measure, const std::string& baseline, double ratio) {
    std::printf("| %-44s | %-14s | %-14s | %7.3fx | %9s | %-4s |\n", name, measure.c_str(),
                baseline.c_str(), ratio, "", "info");
}

namespace {
std::string formatted(const char* format, double value) {
    char b[32];
    std::snprintf(b, sizeof b, format, value);
    return b;
}
} // namespace

std::string ms(double s) {
    return formatted("%.2f ms", s * 1e3);
}
std::string ns(double s) {
    return formatted("%.1f ns", s * 1e9);
}
std::string us(double s) {
    return formatted("%.1f us", s * 1e6);
}
std::string mib(double bytes) {
    return formatted("%.1f MiB", bytes / (1 << 20));
}

void wrongResult(const std::string& what) {
    std::printf("  WRONG RESULT: %s\n", what.c_str());
    ++failures;
}

int missedTargets() {
    return failures;
}

} // namespace bench
