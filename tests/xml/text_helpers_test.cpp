// The two text helpers: emptyCharData's narrow blank test and skipWhiteSpace.
#include <gtest/gtest.h>

#include <velcan/velcan.h>

namespace {

bool blank(const char* s, int len) {
    expatpp reader(false);
    return reader.emptyCharData(s, len);
}

TEST(EmptyCharData, LengthZeroIsBlank) { EXPECT_TRUE(blank("x", 0)); }
TEST(EmptyCharData, LoneLineFeedIsBlank) { EXPECT_TRUE(blank("\n", 1)); }
TEST(EmptyCharData, LoneCarriageReturnIsBlank) { EXPECT_TRUE(blank("\r", 1)); }
TEST(EmptyCharData, CarriageReturnLineFeedIsBlank) { EXPECT_TRUE(blank("\r\n", 2)); }
TEST(EmptyCharData, OneSpaceIsBlank) { EXPECT_TRUE(blank(" ", 1)); }
TEST(EmptyCharData, ThreeSpacesAreBlank) { EXPECT_TRUE(blank("   ", 3)); }
TEST(EmptyCharData, LoneTabIsNotBlank) { EXPECT_FALSE(blank("\t", 1)); }
TEST(EmptyCharData, TwoSpacesThenLineFeedAreNotBlank) { EXPECT_FALSE(blank("  \n", 3)); }
TEST(EmptyCharData, TwoLineFeedsAreNotBlank) { EXPECT_FALSE(blank("\n\n", 2)); }
TEST(EmptyCharData, LetterBetweenSpacesIsNotBlank) { EXPECT_FALSE(blank(" a ", 3)); }
TEST(EmptyCharData, LineFeedThenCarriageReturnIsNotBlank) { EXPECT_FALSE(blank("\n\r", 2)); }
TEST(EmptyCharData, OneLetterIsNotBlank) { EXPECT_FALSE(blank("a", 1)); }
TEST(EmptyCharData, LooksOnlyAtTheFirstLenBytes) { EXPECT_TRUE(blank("  x", 2)); }

TEST(SkipWhiteSpace, CountsSpaceTabCarriageReturnLineFeedBeforeALetter) {
    EXPECT_EQ(expatpp::skipWhiteSpace(" \t\r\nx"), 4);
}
TEST(SkipWhiteSpace, EmptyTextGivesZero) { EXPECT_EQ(expatpp::skipWhiteSpace(""), 0); }
TEST(SkipWhiteSpace, TextOfOnlyBlanksGivesItsFullLength) {
    EXPECT_EQ(expatpp::skipWhiteSpace("\n\r\t  \t"), 6);
}
TEST(SkipWhiteSpace, StopsAtTheFirstOtherCharacter) {
    EXPECT_EQ(expatpp::skipWhiteSpace("  a  "), 2);
    EXPECT_EQ(expatpp::skipWhiteSpace("\v "), 0);
}

} // namespace
