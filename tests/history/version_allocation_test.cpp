// Comparing version numbers allocates nothing. This program counts every operator new.
#include <atomic>
#include <cstdlib>

#include <gtest/gtest.h>

#include <velcan/velcan.h>

#include "support/replaced_new.h"

namespace {
std::atomic<long> allocations(0);
} // namespace

void* testAllocate(std::size_t size) {
    ++allocations;
    return std::malloc(size);
}

namespace {

TEST(VersionNumbers, ComparingAndTellingThemAllocateNothing) {
    const char* texts[] = {"2.0.10", "v2.0-rc.10+build.5", "1.184467440737095516160000",
                           "",       "build 2024",         "2.0-alpha.beta.1"};
    const long before = allocations;
    int sum = 0;
    for (const char* a : texts) {
        sum += VelcanIsVersionNumber(a) ? 1 : 0;
        for (const char* b : texts) {
            sum += VelcanCompareVersions(a, b);
        }
    }
    EXPECT_EQ(allocations - before, 0);
    EXPECT_EQ(sum, 4); // four of the texts are version numbers; the comparisons cancel out
}

} // namespace
