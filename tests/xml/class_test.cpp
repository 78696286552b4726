// The expatpp class itself: construction, defaults, copies, routing and pass-throughs.
// These tests copy readers on purpose, to show what a copy does.
#define VELCAN_ALLOW_EXPATPP_COPY

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "overwriting_assignment.h"
#include "recorder.h"

namespace {

TEST(ExpatppClass, DefaultConstructionCreatesAParser) {
    expatpp reader;
    EXPECT_NE(static_cast<void*>(reader), nullptr);
}

TEST(ExpatppClass, ConstructionWithoutParserGivesANullHandle) {
    expatpp reader(false);
    EXPECT_EQ(static_cast<void*>(reader), nullptr);
}

TEST(ExpatppClass, TheObjectIsItsParsersUserData) {
    expatpp reader;
    EXPECT_EQ(XML_GetUserData(static_cast<XML_Parser>(static_cast<void*>(reader))), &reader);
}

TEST(ExpatppClass, HandleConversionAllowsCallingExpatDirectly) {
    expatpp reader;
    ASSERT_NE(reader.XML_Parse("<a>\n  <b/>", 10, 0), 0);
    EXPECT_EQ(XML_GetCurrentColumnNumber(static_cast<XML_Parser>(static_cast<void*>(reader))), 6u);
}

// What the header advises for an event that fails: catch inside it, keep why, stop the parse.
class StoppingReader : public expatpp {
  public:
    std::string failure;
    int elements = 0;
    void startElement(const char* name, const char**) override {
        ++elements;
        try {
            if (std::string(name) == "bad") {
                throw std::runtime_error("a bad element");
            }
        } catch (const std::exception& e) {
            failure = e.what();
            XML_StopParser(static_cast<XML_Parser>(static_cast<void*>(*this)), XML_FALSE);
        }
    }
};

TEST(ExpatppClass, EventThatCatchesItsFailureAndStopsTheParserEndsTheParseAborted) {
    StoppingReader reader;
    const std::string doc = "<a><bad/><c/><d/></a>";
    EXPECT_EQ(reader.XML_Parse(doc.data(), static_cast<int>(doc.size()), 1), 0);
    EXPECT_EQ(reader.XML_GetErrorCode(), XML_ERROR_ABORTED);
    EXPECT_EQ(reader.failure, "a bad element");
    EXPECT_EQ(reader.elements, 2); // no event after the stop
}

TEST(ExpatppClass, EventsThatAreNotOverriddenDoNothing) {
    expatpp reader;
    const std::string doc = "<?xml version=\"1.0\"?><!DOCTYPE r [<!NOTATION n SYSTEM \"n\">"
                            "<!ENTITY u SYSTEM \"u\" NDATA n><!ENTITY i \"x\">]>"
                            "<r xmlns:p=\"urn:p\"><?pi data?><!-- c --><p:e a=\"1\">t&i;</p:e></r>";
    EXPECT_NE(reader.XML_Parse(doc.data(), static_cast<int>(doc.size()), 1), 0);
    EXPECT_EQ(reader.XML_GetErrorCode(), XML_ERROR_NONE);
}

TEST(ExpatppClass, DefaultNotStandaloneHandlerReturnsZero) {
    expatpp reader;
    EXPECT_EQ(reader.notStandaloneHandler(), 0);
}

TEST(ExpatppClass, ParseReturnsExpatsStatus) {
    expatpp good;
    EXPECT_EQ(good.XML_Parse("<a/>", 4, 1), XML_STATUS_OK);
    expatpp bad;
    EXPECT_EQ(bad.XML_Parse("<a></b>", 7, 1), XML_STATUS_ERROR);
    EXPECT_EQ(bad.XML_GetErrorCode(), XML_ERROR_TAG_MISMATCH);
}

TEST(ExpatppClass, EmptyDocumentFailsWithNoElements) {
    expatpp reader;
    EXPECT_EQ(reader.XML_Parse("", 0, 1), 0);
    EXPECT_EQ(reader.XML_GetErrorCode(), XML_ERROR_NO_ELEMENTS);
}

TEST(ExpatppClass, ParserStaysFailedAfterAnError) {
    expatpp reader;
    ASSERT_EQ(reader.XML_Parse("<a><", 4, 0), XML_STATUS_OK);
    ASSERT_EQ(reader.XML_Parse("/>", 2, 0), XML_STATUS_ERROR);
    EXPECT_EQ(reader.XML_Parse("</a>", 4, 1), XML_STATUS_ERROR);
    EXPECT_NE(reader.XML_GetErrorCode(), XML_ERROR_NONE);
}

TEST(ExpatppClass, LineNumberFollowsTheFeeding) {
    expatpp reader;
    EXPECT_EQ(reader.XML_GetCurrentLineNumber(), 1);
    ASSERT_NE(reader.XML_Parse("<a>\n\n\n<b/>", 10, 0), 0);
    EXPECT_EQ(reader.XML_GetCurrentLineNumber(), 4);
}

TEST(ExpatppClass, CopyRefersToTheSameParser) {
    expatpp* original = new expatpp;
    expatpp copy(*original);
    EXPECT_EQ(static_cast<void*>(copy), static_cast<void*>(*original));
    // Both would free the shared parser; let only one of them do it here.
    ::operator delete(original);
}

TEST(ExpatppClass, EventsFedThroughACopyGoToTheOriginal) {
    Recorder original;
    Recorder* copy = new Recorder(original);
    ASSERT_NE(copy->XML_Parse("<a>x</a>", 8, 1), 0);
    EXPECT_EQ(original.events.size(), 3u);
    EXPECT_TRUE(copy->events.empty());
    ::operator delete(copy); // its destructor would free the shared parser a second time
}

TEST(ExpatppClass, AssignmentTakesTheSourcesParser) {
    expatpp source;
    expatpp* target = newTargetOfOverwritingAssignment();
    *target = source;
    EXPECT_EQ(static_cast<void*>(*target), static_cast<void*>(source));
    ::operator delete(target); // its destructor would free the shared parser a second time
}

// Each static callback calls its object's event with the arguments unchanged.
TEST(ExpatppClass, StaticCallbacksRouteToTheObjectsEvents) {
    Recorder reader;
    const char* atts[] = {"k", "v", nullptr};
    expatpp::startElementCallback(&reader, "e", atts);
    expatpp::charDataCallback(&reader, "text", 2);
    expatpp::endElementCallback(&reader, "e");
    expatpp::processingInstructionCallback(&reader, "t", "d");
    expatpp::defaultHandlerCallback(&reader, "dflt", 3);
    expatpp::unParsedEntityDeclCallback(&reader, "n", "b", "s", "p", "no");
    expatpp::notationDeclCallback(&reader, "no", "b", "s", "p");
    expatpp::startNamespaceCallback(&reader, "p", "u");
    expatpp::endNamespaceCallback(&reader, "p");
    EXPECT_EQ(reader.events,
              (std::vector<std::string>{"start e k=v", "chars te", "end e", "pi t d", "default dfl",
                                        "unparsed n b s p no", "notation no b s p", "start-ns p u",
                                        "end-ns p"}));
}

TEST(ExpatppClass, NotStandaloneCallbackReturnsTheEventsAnswer) {
    Recorder reader;
    reader.standaloneAnswer = 7;
    EXPECT_EQ(expatpp::notStandaloneHandlerCallback(&reader), 7);
    reader.standaloneAnswer = 0;
    EXPECT_EQ(expatpp::notStandaloneHandlerCallback(&reader), 0);
}

} // namespace
