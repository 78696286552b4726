// The reader when memory runs out: an empty record and the file closed, never an exception.
// This program replaces operator new, which the library's own allocations go through.
#include <atomic>
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

#include "history_test_support.h"
#include "support/open_files.h"

// The replacements below pair malloc with free themselves; GCC, seeing both inlined, takes
// the pairing for a mismatch.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

namespace {
// Requests of at least this many bytes fail while set; 0 lets everything through.
std::atomic<std::size_t> failFrom(0);
} // namespace

void* operator new(std::size_t size) {
    const std::size_t limit = failFrom;
    if (limit != 0 && size >= limit) {
        throw std::bad_alloc();
    }
    if (void* p = std::malloc(size == 0 ? 1 : size)) {
        return p;
    }
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}

namespace {

TEST(HistoryOutOfMemory, DescriptionThatCannotBeStoredGivesAnEmptyRecordAndClosesTheFile) {
    TempFile file(wrap("<Version number=\"1\"><FeatureDescription>" + std::string(1 << 20, 'x') +
                       "</FeatureDescription></Version>"));
    const int before = openDescriptorCount();
    failFrom = 64 * 1024;
    const TUpdateVersionInfo info = VelcanParseUpdateFile(file.path());
    failFrom = 0;
    EXPECT_TRUE(info.versions.empty());
    EXPECT_TRUE(info.extraText.empty());
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST(HistoryOutOfMemory, SameFileReadsWholeWhenMemoryAllows) {
    TempFile file(wrap("<Version number=\"1\"><FeatureDescription>" + std::string(1 << 20, 'x') +
                       "</FeatureDescription></Version>"));
    const TUpdateVersionInfo info = VelcanParseUpdateFile(file.path());
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_EQ(info.versions[0].featureDescriptions.at(0).size(), 1u << 20);
}

} // namespace
