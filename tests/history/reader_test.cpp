// What the version-history reader makes of a file's elements, attributes and text. Each
// record is compared whole, as a summary: a line per version, "number|date|[description]...".
#include <gtest/gtest.h>

#include "history_test_support.h"

namespace {

TEST(HistoryReader, VersionsComeInFileOrderWithTheirDescriptions) {
    EXPECT_EQ(versionsIn(wrap("<Version number=\"2.0\" date=\"2026-01-02\">"
                              "<FeatureDescription>first</FeatureDescription>"
                              "<FeatureDescription>second</FeatureDescription></Version>"
                              "<Version number=\"1.0\" date=\"2025-05-06\"></Version>")),
              "2.0|2026-01-02|[first][second]\n1.0|2025-05-06|\n");
}

TEST(HistoryReader, VersionWithoutAttributesHasEmptyNumberAndDate) {
    EXPECT_EQ(versionsIn(wrap("<Version/>")), "||\n");
}

TEST(HistoryReader, MissingAttributeIsNotCarriedOverFromThePreviousVersion) {
    EXPECT_EQ(versionsIn(wrap("<Version number=\"1\" date=\"d1\"/><Version date=\"d2\"/>"
                              "<Version number=\"3\"/>")),
              "1|d1|\n|d2|\n3||\n");
}

TEST(HistoryReader, OtherAttributesAreIgnored) {
    EXPECT_EQ(versionsIn(wrap("<Version build=\"77\" number=\"1\" channel=\"beta\" date=\"d\"/>")),
              "1|d|\n");
}

TEST(HistoryReader, AttributeValuesAreNormalisedButNotTrimmed) {
    EXPECT_EQ(versionsIn(wrap("<Version number=\" 1.0\tbeta\n\" date=\"&lt;2026&gt; &#x41;\"/>")),
              " 1.0 beta |<2026> A|\n");
}

TEST(HistoryReader, DescriptionBeforeTheFirstVersionIsLost) {
    EXPECT_EQ(versionsIn(wrap("<FeatureDescription>stray</FeatureDescription>"
                              "<Version number=\"1\"/>")),
              "1||\n");
}

TEST(HistoryReader, DescriptionBetweenTwoVersionsIsLost) {
    EXPECT_EQ(versionsIn(wrap(
                  "<Version number=\"1\"><FeatureDescription>a</FeatureDescription></Version>"
                  "<FeatureDescription>stray</FeatureDescription>"
                  "<Version number=\"2\"><FeatureDescription>b</FeatureDescription></Version>")),
              "1||[a]\n2||[b]\n");
}

TEST(HistoryReader, DescriptionAfterTheLastVersionIsLost) {
    EXPECT_EQ(
        versionsIn(wrap("<Version number=\"1\"><FeatureDescription>a</FeatureDescription></Version>"
                        "<FeatureDescription>stray</FeatureDescription>")),
        "1||[a]\n");
}

TEST(HistoryReader, NestedVersionIsStoredTwiceWithTheInnerValues) {
    EXPECT_EQ(versionsIn(wrap(
                  "<Version number=\"outer\" date=\"o\"><FeatureDescription>a</FeatureDescription>"
                  "<Version number=\"inner\" date=\"i\"><FeatureDescription>b</FeatureDescription>"
                  "</Version></Version>")),
              "inner|i|[b]\ninner|i|[b]\n");
}

TEST(HistoryReader, NestedVersionWithoutADateDoesNotKeepTheDateOfTheVersionAroundIt) {
    EXPECT_EQ(versionsIn(wrap("<Version number=\"outer\" date=\"o\"><Version number=\"inner\"/>"
                              "</Version>")),
              "inner||\ninner||\n");
}

TEST(HistoryReader, DescriptionAfterANestedVersionEndsJoinsTheOuterCopyOnly) {
    EXPECT_EQ(versionsIn(wrap("<Version number=\"outer\"><Version number=\"inner\">"
                              "<FeatureDescription>b</FeatureDescription></Version>"
                              "<FeatureDescription>c</FeatureDescription></Version>")),
              "inner||[b]\ninner||[b][c]\n");
}

TEST(HistoryReader, RepeatedVersionEndsStoreCopiesThatLaterChangesDoNotReach) {
    EXPECT_EQ(versionsIn(wrap("<Version number=\"1\"><Version><Version number=\"3\"/>"
                              "<FeatureDescription>x</FeatureDescription></Version>"
                              "<FeatureDescription>y</FeatureDescription></Version>")),
              "3||\n3||[x]\n3||[x][y]\n");
}

TEST(HistoryReader, TextOfElementsInsideADescriptionIsKeptAndTheirMarkupIsNot) {
    EXPECT_EQ(versionsIn(wrap("<Version><FeatureDescription>Now <b>bold</b> and <i>it<u>al</u></i>."
                              "<br/></FeatureDescription></Version>")),
              "||[Now bold and ital.]\n");
}

TEST(HistoryReader, LineBreaksAndIndentationInADescriptionAreKept) {
    EXPECT_EQ(versionsIn(wrap("<Version><FeatureDescription>\n    line one\n\tline two  \n  "
                              "</FeatureDescription></Version>")),
              "||[\n    line one\n\tline two  \n  ]\n");
}

TEST(HistoryReader, CarriageReturnLineFeedReachesADescriptionAsOneLineFeed) {
    EXPECT_EQ(versionsIn(wrap(
                  "<Version><FeatureDescription>one\r\ntwo\r\n</FeatureDescription></Version>")),
              "||[one\ntwo\n]\n");
}

TEST(HistoryReader, NamesAreRecognisedInAnyLetterCase) {
    EXPECT_EQ(versionsIn(wrap(
                  "<VERSION NUMBER=\"1\" DATE=\"d1\"><FEATUREDESCRIPTION>a</FEATUREDESCRIPTION>"
                  "</VERSION><version Number=\"2\" dAtE=\"d2\"><featuredescription>b"
                  "</featuredescription></version>")),
              "1|d1|[a]\n2|d2|[b]\n");
}

TEST(HistoryReader, NamesThatOnlyNearlyMatchAreNotRecognised) {
    // A letter short, a letter over, or one character that is not the letter in either case.
    EXPECT_EQ(
        versionsIn(wrap("<Versio number=\"a\"/><Versions number=\"b\"/><V_rsion number=\"c\"/>"
                        "<Version number=\"kept\"><FeatureDescriptio>x</FeatureDescriptio>"
                        "<FeatureDescriptions>y</FeatureDescriptions><FeatureDescripti_n>z"
                        "</FeatureDescripti_n><FeatureDescription>w</FeatureDescription></Version>"
                        "<Ver-ion number=\"d\"/><VERSI0N number=\"e\"/>")),
        "kept||[w]\n");
}

TEST(HistoryReader, LaterNumberAttributeInAnotherCaseWins) {
    EXPECT_EQ(versionsIn(wrap("<Version number=\"first\" NUMBER=\"second\"/>"
                              "<Version NUMBER=\"first\" number=\"second\"/>")),
              "second||\nsecond||\n");
}

TEST(HistoryReader, NamespacePrefixedVersionDoesNotMatch) {
    EXPECT_EQ(versionsIn("<h:History xmlns:h=\"urn:h\"><h:Version number=\"1\"/></h:History>"), "");
}

TEST(HistoryReader, RootElementNameIsNotExamined) {
    EXPECT_EQ(versionsIn("<Version number=\"root\"/>"), "root||\n");
}

TEST(HistoryReader, EntityFromTheFilesOwnDtdIsMissingFromTheDescription) {
    EXPECT_EQ(versionsIn("<!DOCTYPE History [<!ENTITY prod \"Velcan\">]>" +
                         wrap("<Version><FeatureDescription>About &prod; now"
                              "</FeatureDescription></Version>")),
              "||[About  now]\n");
}

TEST(HistoryReader, PredefinedEntitiesAndCharacterReferencesAreKept) {
    EXPECT_EQ(versionsIn(wrap("<Version><FeatureDescription>&lt;a&gt; &amp; &quot;b&quot; "
                              "&apos;c&apos; &#169; &#x2013;</FeatureDescription></Version>")),
              "||[<a> & \"b\" 'c' \xc2\xa9 \xe2\x80\x93]\n");
}

TEST(HistoryReader, NestedDescriptionGivesTheInnerTextThenAnEmptyOne) {
    EXPECT_EQ(versionsIn(wrap("<Version><FeatureDescription>before<FeatureDescription>inner"
                              "</FeatureDescription>after</FeatureDescription></Version>")),
              "||[inner][]\n");
}

TEST(HistoryReader, TextOutsideDescriptionsIsIgnored) {
    EXPECT_EQ(versionsIn(wrap("loose<Version>text<FeatureDescription>kept</FeatureDescription>"
                              "more</Version>")),
              "||[kept]\n");
}

TEST(HistoryReader, CommentsAndProcessingInstructionsInADescriptionAreDropped) {
    EXPECT_EQ(versionsIn(wrap("<Version><FeatureDescription>a<!-- note -->b<?pi x?>c"
                              "</FeatureDescription></Version>")),
              "||[abc]\n");
}

TEST(HistoryReader, ExtraTextIsAlwaysEmpty) {
    EXPECT_EQ(versionsIn(wrap("<ExtraText>notes</ExtraText><Version number=\"1\"/>"
                              "<extraText>x</extraText>")),
              "1||\n");
}

TEST(HistoryReader, FileWithoutVersionsGivesAnEmptyRecord) {
    EXPECT_EQ(versionsIn(wrap("<Other/>")), "");
}

} // namespace
