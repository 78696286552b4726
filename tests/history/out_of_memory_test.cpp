// The reader when memory runs out: an empty record and the file closed, never an exception.
// This program replaces operator new, which the library's own allocations go through.
#include <atomic>
#include <cstdlib>

#include <gtest/gtest.h>

#include "history_test_support.h"
#include "support/open_files.h"
#include "support/replaced_new.h"

namespace {
// Requests of at least this many bytes fail while set; 0 lets everything through.
std::atomic<std::size_t> failFrom(0);
} // namespace

void* testAllocate(std::size_t size) {
    const std::size_t limit = failFrom;
    return limit != 0 && size >= limit ? nullptr : std::malloc(size);
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
