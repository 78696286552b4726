// What a reader derived from expatpp receives, with the document fed in pieces of several
// sizes: text split across callbacks must come out the same.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "recorder.h"

using ::testing::ElementsAre;

namespace {

class Events : public ::testing::TestWithParam<std::size_t> {
  protected:
    Recorder reader;

    void parse(const std::string& doc) { ASSERT_NE(reader.feed(doc, GetParam()), 0); }

    // The document's events are exactly these, in this order.
    void expectEvents(const std::string& doc, const std::vector<std::string>& events) {
        parse(doc);
        EXPECT_EQ(reader.events, events);
    }

    // The text inside one element arrives whole: its character data, joined, is the text.
    void expectTextArrivesWhole(const std::string& text) {
        parse("<t>" + text + "</t>");
        EXPECT_THAT(reader.events, ElementsAre("start t", "chars " + text, "end t"));
    }
};

TEST_P(Events, ElementsArriveWithTheirAttributesInOrder) {
    parse("<root a=\"1\" b='two'><child/><child c=\"&lt;3\"></child></root>");
    EXPECT_THAT(reader.events, ElementsAre("start root a=1 b=two", "start child", "end child",
                                           "start child c=<3", "end child", "end root"));
}

TEST_P(Events, CharacterDataJoinedIsTheWholeText) {
    expectTextArrivesWhole("The quick brown fox jumps over the lazy dog, twice over.");
}

TEST_P(Events, CharacterDataIsSplitAcrossCallsWhenThePiecesAreSmall) {
    parse("<t>abcdefghij</t>");
    if (GetParam() != 0 && GetParam() < 10) {
        EXPECT_GT(reader.charDataCalls, 1);
    } else {
        EXPECT_EQ(reader.charDataCalls, 1);
    }
}

TEST_P(Events, LineBreaksArriveAsLineFeedsInTheirOwnCalls) {
    expectEvents("<t>one\r\ntwo\rthree\n</t>", {"start t", "chars one\ntwo\nthree\n", "end t"});
}

TEST_P(Events, PredefinedEntitiesAndCharacterReferencesArriveAsCharacterData) {
    parse("<t>&lt;&gt;&amp;&quot;&apos;&#65;&#x42;&#xe9;</t>");
    EXPECT_THAT(reader.events, ElementsAre("start t", "chars <>&\"'AB\xc3\xa9", "end t"));
}

TEST_P(Events, CdataSectionTextArrivesAsCharacterDataAndItsMarkersAsDefaultText) {
    expectEvents("<t><![CDATA[a<b&c]]></t>",
                 {"start t", "default <![CDATA[", "chars a<b&c", "default ]]>", "end t"});
}

TEST_P(Events, ProcessingInstructionArrivesWithTargetAndData) {
    expectEvents(
        "<?xml version=\"1.0\"?><?app-setting colour=\"red\"?><t/>",
        {"default <?xml version=\"1.0\"?>", "pi app-setting colour=\"red\"", "start t", "end t"});
}

TEST_P(Events, CommentsReachTheDefaultHandler) {
    expectEvents("<t><!-- a note --></t>", {"start t", "default <!-- a note -->", "end t"});
}

TEST_P(Events, InternalEntityReferenceReachesTheDefaultHandlerUnexpanded) {
    parse("<!DOCTYPE t [<!ENTITY prod \"Velcan\">]><t>about &prod; here</t>");
    ASSERT_GE(reader.events.size(), 4u);
    const std::vector<std::string> tail(reader.events.end() - 5, reader.events.end());
    EXPECT_THAT(tail,
                ElementsAre("start t", "chars about ", "default &prod;", "chars  here", "end t"));
}

TEST_P(Events, UnparsedEntityDeclarationArrives) {
    parse("<!DOCTYPE t [<!NOTATION gif SYSTEM \"image/gif\">"
          "<!ENTITY logo SYSTEM \"logo.gif\" NDATA gif>]><t/>");
    EXPECT_NE(std::find(reader.events.begin(), reader.events.end(),
                        "unparsed logo (null) logo.gif (null) gif"),
              reader.events.end());
}

TEST_P(Events, NotationDeclarationArrives) {
    parse("<!DOCTYPE t [<!NOTATION gif PUBLIC \"-//gif\" \"image/gif\">]><t/>");
    EXPECT_NE(std::find(reader.events.begin(), reader.events.end(),
                        "notation gif (null) image/gif -//gif"),
              reader.events.end());
}

TEST_P(Events, NamespaceDeclarationsArriveAsPlainAttributesAndPrefixedNamesWhole) {
    expectEvents("<v:root xmlns:v=\"urn:velcan\" xmlns=\"urn:d\"><v:item/></v:root>",
                 {"start v:root xmlns:v=urn:velcan xmlns=urn:d", "start v:item", "end v:item",
                  "end v:root"});
}

TEST_P(Events, MultiByteCharactersSplitAcrossPiecesArriveWhole) {
    // Two-, three- and four-byte UTF-8 characters, so every small piece size cuts some.
    expectTextArrivesWhole("\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\xc3\xa9\xe2\x82\xac");
}

TEST_P(Events, Latin1DocumentTextArrivesAsUtf8) {
    expectEvents("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><t a=\"\xe9\">caf\xe9</t>",
                 {"default <?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>", "start t a=\xc3\xa9",
                  "chars caf\xc3\xa9", "end t"});
}

TEST_P(Events, NotStandaloneDocumentIsRejectedByDefault) {
    EXPECT_EQ(reader.feed("<!DOCTYPE t SYSTEM \"t.dtd\"><t/>", GetParam()), 0);
    EXPECT_EQ(reader.XML_GetErrorCode(), XML_ERROR_NOT_STANDALONE);
    EXPECT_NE(std::find(reader.events.begin(), reader.events.end(), "not-standalone"),
              reader.events.end());
}

TEST_P(Events, NotStandaloneDocumentIsAcceptedWhenTheReaderSaysSo) {
    reader.standaloneAnswer = 1;
    EXPECT_NE(reader.feed("<!DOCTYPE t SYSTEM \"t.dtd\"><t>x</t>", GetParam()), 0);
    EXPECT_EQ(reader.events.back(), "end t");
}

TEST_P(Events, StandaloneYesDocumentWithExternalSubsetNeedsNoAnswer) {
    EXPECT_NE(reader.feed("<?xml version=\"1.0\" standalone=\"yes\"?>"
                          "<!DOCTYPE t SYSTEM \"t.dtd\"><t/>",
                          GetParam()),
              0);
    EXPECT_EQ(std::find(reader.events.begin(), reader.events.end(), "not-standalone"),
              reader.events.end());
}

TEST_P(Events, MismatchedTagFailsWithExpatsErrorAndLine) {
    EXPECT_EQ(reader.feed("<a>\n<b>\n</a>\n", GetParam()), 0);
    EXPECT_EQ(reader.XML_GetErrorCode(), XML_ERROR_TAG_MISMATCH);
    EXPECT_EQ(reader.XML_GetCurrentLineNumber(), 3);
}

INSTANTIATE_TEST_SUITE_P(PieceSizes, Events, ::testing::Values(1, 2, 3, 5, 1024, 0),
                         [](const ::testing::TestParamInfo<std::size_t>& piece) {
                             return piece.param == 0 ? std::string("Whole")
                                                     : "Pieces" + std::to_string(piece.param);
                         });

} // namespace
