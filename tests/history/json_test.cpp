// JSON string quoting of the tool's --json output.
#include <gtest/gtest.h>

#include "history/json.h"

namespace {

std::string quote(const std::string& s) {
    return jsonString(s);
}

TEST(JsonString, PlainTextIsQuoted) {
    EXPECT_EQ(quote("abc"), "\"abc\"");
}
TEST(JsonString, QuoteAndBackslashAreEscaped) {
    EXPECT_EQ(quote("a\"b\\c"), "\"a\\\"b\\\\c\"");
}
TEST(JsonString, CommonControlCharactersUseShortEscapes) {
    EXPECT_EQ(quote("\b\f\n\r\t"), "\"\\b\\f\\n\\r\\t\"");
}
TEST(JsonString, OtherControlCharactersUseUnicodeEscapes) {
    EXPECT_EQ(quote(std::string("\x01\x1f\x7f", 3)), "\"\\u0001\\u001f\\u007f\"");
}
TEST(JsonString, NulByteIsEscaped) {
    EXPECT_EQ(quote(std::string(1, '\0')), "\"\\u0000\"");
}
TEST(JsonString, Utf8IsKeptAsItIs) {
    EXPECT_EQ(quote("caf\xc3\xa9 \xe6\x97\xa5 \xf0\x9f\x98\x80"),
              "\"caf\xc3\xa9 \xe6\x97\xa5 \xf0\x9f\x98\x80\"");
}
TEST(JsonString, AByteThatIsNotUtf8BecomesTheReplacementCharacter) {
    EXPECT_EQ(quote("a\xff"
                    "b\xe9"
                    "c"),
              "\"a\xef\xbf\xbd"
              "b\xef\xbf\xbd"
              "c\"");
}
TEST(JsonString, ASequenceCutShortBecomesOneReplacementCharacterPerByte) {
    EXPECT_EQ(quote("\xe6\x97"), "\"\xef\xbf\xbd\xef\xbf\xbd\"");
    EXPECT_EQ(quote("\xe6\x97x"), "\"\xef\xbf\xbd\xef\xbf\xbdx\"");
}
TEST(JsonString, OverlongFormsSurrogatesAndCodePointsBeyondUnicodeAreReplaced) {
    const std::string r = "\xef\xbf\xbd";
    EXPECT_EQ(quote("\xc0\xaf"), "\"" + r + r + "\"");                 // overlong '/'
    EXPECT_EQ(quote("\xed\xa0\x80"), "\"" + r + r + r + "\"");         // U+D800
    EXPECT_EQ(quote("\xf4\x90\x80\x80"), "\"" + r + r + r + r + "\""); // U+110000
}
TEST(JsonString, TheLargestCodePointIsKept) {
    EXPECT_EQ(quote("\xf4\x8f\xbf\xbf"), "\"\xf4\x8f\xbf\xbf\"");
}
TEST(JsonString, SlashIsLeftAlone) {
    EXPECT_EQ(quote("a/b"), "\"a/b\"");
}

} // namespace
