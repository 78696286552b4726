// What the version-history reader makes of a file's elements, attributes and text.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "history_test_support.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

TEST(HistoryReader, VersionsComeInFileOrderWithTheirDescriptions) {
    const TUpdateVersionInfo info =
        readHistory(wrap("<Version number=\"2.0\" date=\"2026-01-02\">"
                         "<FeatureDescription>first</FeatureDescription>"
                         "<FeatureDescription>second</FeatureDescription></Version>"
                         "<Version number=\"1.0\" date=\"2025-05-06\"></Version>"));
    ASSERT_EQ(info.versions.size(), 2u);
    EXPECT_EQ(info.versions[0].number, "2.0");
    EXPECT_EQ(info.versions[0].date, "2026-01-02");
    EXPECT_THAT(info.versions[0].featureDescriptions, ElementsAre("first", "second"));
    EXPECT_EQ(info.versions[1].number, "1.0");
    EXPECT_EQ(info.versions[1].date, "2025-05-06");
    EXPECT_THAT(info.versions[1].featureDescriptions, IsEmpty());
}

TEST(HistoryReader, VersionWithoutAttributesHasEmptyNumberAndDate) {
    const TUpdateVersionInfo info = readHistory(wrap("<Version/>"));
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_EQ(info.versions[0].number, "");
    EXPECT_EQ(info.versions[0].date, "");
}

TEST(HistoryReader, MissingAttributeIsNotCarriedOverFromThePreviousVersion) {
    const TUpdateVersionInfo info =
        readHistory(wrap("<Version number=\"1\" date=\"d1\"/><Version date=\"d2\"/>"
                         "<Version number=\"3\"/>"));
    ASSERT_EQ(info.versions.size(), 3u);
    EXPECT_EQ(info.versions[1].number, "");
    EXPECT_EQ(info.versions[1].date, "d2");
    EXPECT_EQ(info.versions[2].number, "3");
    EXPECT_EQ(info.versions[2].date, "");
}

TEST(HistoryReader, OtherAttributesAreIgnored) {
    const TUpdateVersionInfo info =
        readHistory(wrap("<Version build=\"77\" number=\"1\" channel=\"beta\" date=\"d\"/>"));
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_EQ(info.versions[0].number, "1");
    EXPECT_EQ(info.versions[0].date, "d");
}

TEST(HistoryReader, AttributeValuesAreNormalisedButNotTrimmed) {
    const TUpdateVersionInfo info =
        readHistory(wrap("<Version number=\" 1.0\tbeta\n\" date=\"&lt;2026&gt; &#x41;\"/>"));
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_EQ(info.versions[0].number, " 1.0 beta ");
    EXPECT_EQ(info.versions[0].date, "<2026> A");
}

TEST(HistoryReader, DescriptionBeforeTheFirstVersionIsLost) {
    const TUpdateVersionInfo info =
        readHistory(wrap("<FeatureDescription>stray</FeatureDescription><Version number=\"1\"/>"));
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_THAT(info.versions[0].featureDescriptions, IsEmpty());
}

TEST(HistoryReader, DescriptionBetweenTwoVersionsIsLost) {
    const TUpdateVersionInfo info = readHistory(
        wrap("<Version number=\"1\"><FeatureDescription>a</FeatureDescription></Version>"
             "<FeatureDescription>stray</FeatureDescription>"
             "<Version number=\"2\"><FeatureDescription>b</FeatureDescription></Version>"));
    ASSERT_EQ(info.versions.size(), 2u);
    EXPECT_THAT(info.versions[0].featureDescriptions, ElementsAre("a"));
    EXPECT_THAT(info.versions[1].featureDescriptions, ElementsAre("b"));
}

TEST(HistoryReader, DescriptionAfterTheLastVersionIsLost) {
    const TUpdateVersionInfo info = readHistory(
        wrap("<Version number=\"1\"><FeatureDescription>a</FeatureDescription></Version>"
             "<FeatureDescription>stray</FeatureDescription>"));
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_THAT(info.versions[0].featureDescriptions, ElementsAre("a"));
}

TEST(HistoryReader, NestedVersionIsStoredTwiceWithTheInnerValues) {
    const TUpdateVersionInfo info = readHistory(
        wrap("<Version number=\"outer\" date=\"o\"><FeatureDescription>a</FeatureDescription>"
             "<Version number=\"inner\" date=\"i\"><FeatureDescription>b</FeatureDescription>"
             "</Version></Version>"));
    ASSERT_EQ(info.versions.size(), 2u);
    for (const TUpdateVersion& v : info.versions) {
        EXPECT_EQ(v.number, "inner");
        EXPECT_EQ(v.date, "i");
        EXPECT_THAT(v.featureDescriptions, ElementsAre("b"));
    }
}

TEST(HistoryReader, DescriptionAfterANestedVersionEndsJoinsTheOuterCopyOnly) {
    const TUpdateVersionInfo info =
        readHistory(wrap("<Version number=\"outer\"><Version number=\"inner\">"
                         "<FeatureDescription>b</FeatureDescription></Version>"
                         "<FeatureDescription>c</FeatureDescription></Version>"));
    ASSERT_EQ(info.versions.size(), 2u);
    EXPECT_EQ(info.versions[0].number, "inner");
    EXPECT_THAT(info.versions[0].featureDescriptions, ElementsAre("b"));
    EXPECT_EQ(info.versions[1].number, "inner");
    EXPECT_THAT(info.versions[1].featureDescriptions, ElementsAre("b", "c"));
}

TEST(HistoryReader, RepeatedVersionEndsStoreCopiesThatLaterChangesDoNotReach) {
    const TUpdateVersionInfo info =
        readHistory(wrap("<Version number=\"1\"><Version><Version number=\"3\"/>"
                         "<FeatureDescription>x</FeatureDescription></Version>"
                         "<FeatureDescription>y</FeatureDescription></Version>"));
    ASSERT_EQ(info.versions.size(), 3u);
    EXPECT_THAT(info.versions[0].featureDescriptions, IsEmpty());
    EXPECT_THAT(info.versions[1].featureDescriptions, ElementsAre("x"));
    EXPECT_THAT(info.versions[2].featureDescriptions, ElementsAre("x", "y"));
    EXPECT_EQ(info.versions[2].number, "3");
}

TEST(HistoryReader, TextOfElementsInsideADescriptionIsKeptAndTheirMarkupIsNot) {
    const TUpdateVersionInfo info =
        readHistory(wrap("<Version><FeatureDescription>Now <b>bold</b> and <i>it<u>al</u></i>.<br/>"
                         "</FeatureDescription></Version>"));
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_THAT(info.versions[0].featureDescriptions, ElementsAre("Now bold and ital."));
}

TEST(HistoryReader, LineBreaksAndIndentationInADescriptionAreKept) {
    const TUpdateVersionInfo info = readHistory(
        wrap("<Version><FeatureDescription>\n    line one\n\tline two  \n  </FeatureDescription>"
             "</Version>"));
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_THAT(info.versions[0].featureDescriptions,
                ElementsAre("\n    line one\n\tline two  \n  "));
}

TEST(HistoryReader, CarriageReturnLineFeedReachesADescriptionAsOneLineFeed) {
    const TUpdateVersionInfo info = readHistory(
        wrap("<Version><FeatureDescription>one\r\ntwo\r\n</FeatureDescription></Version>"));
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_THAT(info.versions[0].featureDescriptions, ElementsAre("one\ntwo\n"));
}

TEST(HistoryReader, NamesAreRecognisedInAnyLetterCase) {
    const TUpdateVersionInfo info = readHistory(
        wrap("<VERSION NUMBER=\"1\" DATE=\"d1\"><FEATUREDESCRIPTION>a</FEATUREDESCRIPTION>"
             "</VERSION><version Number=\"2\" dAtE=\"d2\"><featuredescription>b"
             "</featuredescription></version>"));
    ASSERT_EQ(info.versions.size(), 2u);
    EXPECT_EQ(info.versions[0].number, "1");
    EXPECT_EQ(info.versions[0].date, "d1");
    EXPECT_THAT(info.versions[0].featureDescriptions, ElementsAre("a"));
    EXPECT_EQ(info.versions[1].number, "2");
    EXPECT_EQ(info.versions[1].date, "d2");
    EXPECT_THAT(info.versions[1].featureDescriptions, ElementsAre("b"));
}

TEST(HistoryReader, NamesThatOnlyNearlyMatchAreNotRecognised) {
    // A letter short, a letter over, or one character that is not the letter in either case.
    const TUpdateVersionInfo info =
        readHistory(wrap("<Versio number=\"a\"/><Versions number=\"b\"/><V_rsion number=\"c\"/>"
                         "<Version number=\"kept\"><FeatureDescriptio>x</FeatureDescriptio>"
                         "<FeatureDescriptions>y</FeatureDescriptions><FeatureDescripti_n>z"
                         "</FeatureDescripti_n><FeatureDescription>w</FeatureDescription></Version>"
                         "<Ver-ion number=\"d\"/><VERSI0N number=\"e\"/>"));
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_EQ(info.versions[0].number, "kept");
    EXPECT_THAT(info.versions[0].featureDescriptions, ElementsAre("w"));
}

TEST(HistoryReader, LaterNumberAttributeInAnotherCaseWins) {
    const TUpdateVersionInfo info =
        readHistory(wrap("<Version number=\"first\" NUMBER=\"second\"/>"
                         "<Version NUMBER=\"first\" number=\"second\"/>"));
    ASSERT_EQ(info.versions.size(), 2u);
    EXPECT_EQ(info.versions[0].number, "second");
    EXPECT_EQ(info.versions[1].number, "second");
}

TEST(HistoryReader, NamespacePrefixedVersionDoesNotMatch) {
    const TUpdateVersionInfo info =
        readHistory("<h:History xmlns:h=\"urn:h\"><h:Version number=\"1\"/></h:History>");
    EXPECT_THAT(info.versions, IsEmpty());
}

TEST(HistoryReader, RootElementNameIsNotExamined) {
    const TUpdateVersionInfo info = readHistory("<Version number=\"root\"/>");
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_EQ(info.versions[0].number, "root");
}

TEST(HistoryReader, EntityFromTheFilesOwnDtdIsMissingFromTheDescription) {
    const TUpdateVersionInfo info =
        readHistory("<!DOCTYPE History [<!ENTITY prod \"Velcan\">]>" +
                    wrap("<Version><FeatureDescription>About &prod; now</FeatureDescription>"
                         "</Version>"));
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_THAT(info.versions[0].featureDescriptions, ElementsAre("About  now"));
}

TEST(HistoryReader, PredefinedEntitiesAndCharacterReferencesAreKept) {
    const TUpdateVersionInfo info = readHistory(wrap(
        "<Version><FeatureDescription>&lt;a&gt; &amp; &quot;b&quot; &apos;c&apos; &#169; &#x2013;"
        "</FeatureDescription></Version>"));
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_THAT(info.versions[0].featureDescriptions,
                ElementsAre("<a> & \"b\" 'c' \xc2\xa9 \xe2\x80\x93"));
}

TEST(HistoryReader, NestedDescriptionGivesTheInnerTextThenAnEmptyOne) {
    const TUpdateVersionInfo info =
        readHistory(wrap("<Version><FeatureDescription>before<FeatureDescription>inner"
                         "</FeatureDescription>after</FeatureDescription></Version>"));
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_THAT(info.versions[0].featureDescriptions, ElementsAre("inner", ""));
}

TEST(HistoryReader, TextOutsideDescriptionsIsIgnored) {
    const TUpdateVersionInfo info = readHistory(
        wrap("loose<Version>text<FeatureDescription>kept</FeatureDescription>more</Version>"));
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_THAT(info.versions[0].featureDescriptions, ElementsAre("kept"));
}

TEST(HistoryReader, CommentsAndProcessingInstructionsInADescriptionAreDropped) {
    const TUpdateVersionInfo info = readHistory(
        wrap("<Version><FeatureDescription>a<!-- note -->b<?pi x?>c</FeatureDescription>"
             "</Version>"));
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_THAT(info.versions[0].featureDescriptions, ElementsAre("abc"));
}

TEST(HistoryReader, ExtraTextIsAlwaysEmpty) {
    const TUpdateVersionInfo info = readHistory(
        wrap("<ExtraText>notes</ExtraText><Version number=\"1\"/><extraText>x</extraText>"));
    ASSERT_EQ(info.versions.size(), 1u);
    EXPECT_EQ(info.extraText, "");
}

TEST(HistoryReader, FileWithoutVersionsGivesAnEmptyRecord) {
    const TUpdateVersionInfo info = readHistory(wrap("<Other/>"));
    EXPECT_THAT(info.versions, IsEmpty());
    EXPECT_EQ(info.extraText, "");
}

} // namespace
