// A history read from memory: the same record and the same failures as the file reader, on
// every history of the project, and nothing opened.
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "history_test_support.h"
#include "support/open_files.h"

namespace {

// The project's histories, one path a line (written by CMake from the source tree).
std::vector<std::string> corpus() {
    std::ifstream list(VELCAN_HISTORY_CORPUS_LIST);
    std::vector<std::string> paths;
    for (std::string line; std::getline(list, line);) {
        if (!line.empty()) {
            paths.push_back(line);
        }
    }
    return paths;
}

std::string bytesOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(HistoryBuffer, EveryHistoryOfTheProjectReadsAsTheFileReaderReadsIt) {
    const std::vector<std::string> paths = corpus();
    ASSERT_GE(paths.size(), 20u) << VELCAN_HISTORY_CORPUS_LIST;
    int read = 0;
    int failed = 0;
    for (const std::string& path : paths) {
        const TUpdateVersionInfo fromFile = VelcanParseUpdateFile(path.c_str());
        // A file that failed is left open by design: closed here, so the loop holds nothing.
        closeDescriptorOn(path.c_str());
        const std::string bytes = bytesAsTextModeReadsThem(bytesOf(path));
        const TUpdateVersionInfo fromMemory = VelcanParseUpdateBuffer(bytes.data(), bytes.size());
        EXPECT_EQ(summary(fromMemory), summary(fromFile)) << path;
        ++(fromFile.versions.empty() ? failed : read);
    }
    // Both kinds are in the corpus: histories read whole, and ones that fail.
    EXPECT_GT(read, 0);
    EXPECT_GT(failed, 0);
}

TEST(HistoryBuffer, NullDataReadsAsNoBytes) {
    EXPECT_TRUE(VelcanParseUpdateBuffer(nullptr, 0).versions.empty());
    EXPECT_TRUE(VelcanParseUpdateBuffer(nullptr, 100).versions.empty());
}

TEST(HistoryBuffer, EmptyBytesGiveAnEmptyRecord) {
    EXPECT_TRUE(VelcanParseUpdateBuffer("", 0).versions.empty());
}

TEST(HistoryBuffer, OnlyTheGivenBytesAreRead) {
    const std::string document = wrap("<Version number=\"2\"/>");
    const std::string held = document + "<after the history>";
    const TUpdateVersionInfo info = VelcanParseUpdateBuffer(held.data(), document.size());
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_EQ(info.versions[0].number, "2");
}

TEST(HistoryBuffer, MalformedBytesGiveAnEmptyRecordAndOpenNothing) {
    const std::string broken = "<History><Version></History>";
    const int before = openDescriptorCount();
    EXPECT_TRUE(VelcanParseUpdateBuffer(broken.data(), broken.size()).versions.empty());
    EXPECT_EQ(openDescriptorCount(), before);
}

} // namespace
