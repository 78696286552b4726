// How the version-history file is read: missing and malformed files, piece boundaries,
// encodings, the file handle, and calls on several threads.
#include <cstring>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "history_test_support.h"
#include "support/open_files.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

bool isEmptyRecord(const TUpdateVersionInfo& info) {
    return info.versions.empty() && info.extraText.empty();
}

// A one-version document padded with a comment to exactly size bytes.
std::string documentOfSize(std::size_t size) {
    const std::string head = "<History><Version number=\"7\"><FeatureDescription>edge"
                             "</FeatureDescription></Version><!--";
    const std::string tail = "--></History>";
    return head + std::string(size - head.size() - tail.size(), 'x') + tail;
}

TEST(HistoryFile, MissingFileGivesAnEmptyRecord) {
    EXPECT_TRUE(isEmptyRecord(VelcanParseUpdateFile("/nonexistent/velcan/history.xml")));
}

TEST(HistoryFile, EmptyFileGivesAnEmptyRecord) {
    EXPECT_TRUE(isEmptyRecord(readHistory("")));
}

TEST(HistoryFile, BrokenMarkupGivesAnEmptyRecord) {
    EXPECT_TRUE(isEmptyRecord(readHistory("<History><Version number=\"1\"></History>")));
}

TEST(HistoryFile, VersionsBeforeAnErrorAreDiscarded) {
    std::string xml = "<History>";
    for (int i = 0; i < 100; ++i) {
        xml += "<Version number=\"" + std::to_string(i) +
               "\"><FeatureDescription>x"
               "</FeatureDescription></Version>\n";
    }
    xml += "<broken></History>";
    EXPECT_TRUE(isEmptyRecord(readHistory(xml)));
}

TEST(HistoryFile, DocumentThatIsNotStandaloneGivesAnEmptyRecord) {
    EXPECT_TRUE(isEmptyRecord(readHistory("<!DOCTYPE History SYSTEM \"history.dtd\">" +
                                          wrap("<Version number=\"1\"/>"))));
}

// The file is opened in text mode. On Windows that ends the file at a Ctrl-Z, so what
// follows one is never read; elsewhere it is a byte like any other, and after the document
// it is an error.
TEST(HistoryFile, ControlZEndsTheFileOnlyWhereTextModeSaysSo) {
    const TUpdateVersionInfo info =
        readHistory(wrap("<Version number=\"1\"/>") + "\x1a<not read on Windows");
#if defined(_WIN32)
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_EQ(info.versions[0].number, "1");
#else
    EXPECT_TRUE(isEmptyRecord(info));
#endif
}

TEST(HistoryFile, FileOfExactly1024BytesIsReadWhole) {
    const std::string xml = documentOfSize(1024);
    ASSERT_EQ(xml.size(), 1024u);
    const TUpdateVersionInfo info = readHistory(xml);
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_THAT(info.versions[0].featureDescriptions, ElementsAre("edge"));
}

TEST(HistoryFile, FileOfExactly2048BytesIsReadWhole) {
    const std::string xml = documentOfSize(2048);
    ASSERT_EQ(xml.size(), 2048u);
    EXPECT_EQ(versionsIn(xml), "7||[edge]\n");
}

// The last full piece is followed by an empty final one, which finds the root never closed.
TEST(HistoryFile, FileOfExactly1024BytesWhoseRootIsNeverClosedGivesAnEmptyRecord) {
    std::string xml = documentOfSize(1024 + std::strlen("</History>"));
    xml.resize(xml.size() - std::strlen("</History>"));
    ASSERT_EQ(xml.size(), 1024u);
    EXPECT_TRUE(isEmptyRecord(readHistory(xml)));
}

TEST(HistoryFile, DescriptionSpanningSeveralPiecesIsWhole) {
    std::string text;
    for (int i = 0; i < 500; ++i) {
        text += "word" + std::to_string(i) + " ";
    }
    const TUpdateVersionInfo info = readHistory(
        wrap("<Version><FeatureDescription>" + text + "</FeatureDescription></Version>"));
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_THAT(info.versions[0].featureDescriptions, ElementsAre(text));
}

TEST(HistoryFile, MultiByteCharactersStraddlingPieceBoundariesArriveWhole) {
    // A two-, three- and four-byte character each cut by one of the 1024-byte boundaries.
    const std::string head = "<History><Version><FeatureDescription>";
    std::string text(1023 - head.size(), 'a');
    text += "\xc3\xa9";
    text += std::string(1022, 'b');
    text += "\xe2\x82\xac";
    text += std::string(1020, 'c');
    text += "\xf0\x9f\x98\x80";
    const std::string xml = head + text + "</FeatureDescription></Version></History>";
    ASSERT_EQ(xml.compare(1023, 2, "\xc3\xa9"), 0);
    ASSERT_EQ(xml.compare(2047, 3, "\xe2\x82\xac"), 0);
    ASSERT_EQ(xml.compare(3070, 4, "\xf0\x9f\x98\x80"), 0);
    const TUpdateVersionInfo info = readHistory(xml);
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_THAT(info.versions[0].featureDescriptions, ElementsAre(text));
}

TEST(HistoryFile, Latin1FileTextArrivesAsUtf8) {
    const TUpdateVersionInfo info =
        readHistory("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" +
                    wrap("<Version date=\"f\xe9vrier\"><FeatureDescription>Caf\xe9 \xbd"
                         "</FeatureDescription></Version>"));
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_EQ(info.versions[0].date, "f\xc3\xa9vrier");
    EXPECT_THAT(info.versions[0].featureDescriptions, ElementsAre("Caf\xc3\xa9 \xc2\xbd"));
}

TEST(HistoryFile, FileIsClosedAfterASuccessfulRead) {
    TempFile file(wrap("<Version number=\"1\"/>"));
    const int before = openDescriptorCount();
    EXPECT_EQ(VelcanParseUpdateFile(file.path()).versions.size(), 1u);
    EXPECT_EQ(openDescriptorCount(), before);
    EXPECT_FALSE(closeDescriptorOn(file.path()));
}

// Reads a history that is not well formed: an empty record, and its file still open (by
// design), which this closes.
void expectEmptyRecordAndFileLeftOpen(const std::string& content) {
    TempFile file(content);
    const int before = openDescriptorCount();
    EXPECT_TRUE(isEmptyRecord(VelcanParseUpdateFile(file.path())));
    EXPECT_EQ(openDescriptorCount(), before + 1);
    EXPECT_TRUE(closeDescriptorOn(file.path()));
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST(HistoryFile, FileIsLeftOpenAfterMalformedXml) {
    expectEmptyRecordAndFileLeftOpen("<History><Version></History>");
}

TEST(HistoryFile, EmptyFileIsLeftOpenToo) {
    expectEmptyRecordAndFileLeftOpen("");
}

TEST(HistoryFile, MissingFileOpensNothing) {
    const int before = openDescriptorCount();
    VelcanParseUpdateFile("/nonexistent/velcan/history.xml");
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST(HistoryFile, EightThreadsReadingAtOnceAgree) {
    std::string xml = "<History>";
    for (int i = 0; i < 300; ++i) {
        xml += "<Version number=\"" + std::to_string(i) + "\" date=\"d" + std::to_string(i) +
               "\"><FeatureDescription>feature " + std::to_string(i) +
               " &amp; more\n  text</FeatureDescription></Version>\n";
    }
    xml += "</History>";
    TempFile file(xml);
    const TUpdateVersionInfo expected = VelcanParseUpdateFile(file.path());
    ASSERT_EQ(expected.versions.size(), 300u);

    const int kThreads = 8;
    const int kRounds = 20;
    int mismatches[kThreads] = {};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int r = 0; r < kRounds; ++r) {
                const TUpdateVersionInfo got = VelcanParseUpdateFile(file.path());
                bool same = got.versions.size() == expected.versions.size();
                for (std::size_t i = 0; same && i < got.versions.size(); ++i) {
                    same = got.versions[i].number == expected.versions[i].number &&
                           got.versions[i].date == expected.versions[i].date &&
                           got.versions[i].featureDescriptions ==
                               expected.versions[i].featureDescriptions;
                }
                mismatches[t] += same ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(mismatches[t], 0) << "thread " << t;
    }
}

} // namespace
