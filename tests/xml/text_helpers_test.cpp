// The two text helpers: emptyCharData's narrow blank test and skipWhiteSpace.
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include <velcan/velcan.h>

namespace {

bool blank(const char* s, int len) {
    expatpp reader(false);
    return reader.emptyCharData(s, len);
}

// One case of the blank test: the bytes, how many of them to look at, and the verdict.
struct BlankCase {
    const char* name;
    const char* text;
    int len;
    bool blank;
};

// Prints a case by its name; without this GoogleTest would dump the struct's bytes, padding
// included.
void PrintTo(const BlankCase& c, std::ostream* out) {
    *out << c.name;
}

class EmptyCharData : public ::testing::TestWithParam<BlankCase> {};

TEST_P(EmptyCharData, Says) {
    EXPECT_EQ(blank(GetParam().text, GetParam().len), GetParam().blank);
}

// Each case is a test of its own, named for the behaviour.
INSTANTIATE_TEST_SUITE_P(
    Cases, EmptyCharData,
    ::testing::Values(BlankCase{"LengthZeroIsBlank", "x", 0, true},
                      BlankCase{"LoneLineFeedIsBlank", "\n", 1, true},
                      BlankCase{"LoneCarriageReturnIsBlank", "\r", 1, true},
                      BlankCase{"CarriageReturnLineFeedIsBlank", "\r\n", 2, true},
                      BlankCase{"OneSpaceIsBlank", " ", 1, true},
                      BlankCase{"ThreeSpacesAreBlank", "   ", 3, true},
                      BlankCase{"LoneTabIsNotBlank", "\t", 1, false},
                      BlankCase{"TwoSpacesThenLineFeedAreNotBlank", "  \n", 3, false},
                      BlankCase{"TwoLineFeedsAreNotBlank", "\n\n", 2, false},
                      BlankCase{"LetterBetweenSpacesIsNotBlank", " a ", 3, false},
                      BlankCase{"LineFeedThenCarriageReturnIsNotBlank", "\n\r", 2, false},
                      BlankCase{"OneLetterIsNotBlank", "a", 1, false},
                      BlankCase{"LooksOnlyAtTheFirstLenBytes", "  x", 2, true}),
    [](const ::testing::TestParamInfo<BlankCase>& c) { return std::string(c.param.name); });

TEST(SkipWhiteSpace, CountsSpaceTabCarriageReturnLineFeedBeforeALetter) {
    EXPECT_EQ(expatpp::skipWhiteSpace(" \t\r\nx"), 4);
}
TEST(SkipWhiteSpace, EmptyTextGivesZero) {
    EXPECT_EQ(expatpp::skipWhiteSpace(""), 0);
}
TEST(SkipWhiteSpace, TextOfOnlyBlanksGivesItsFullLength) {
    EXPECT_EQ(expatpp::skipWhiteSpace("\n\r\t  \t"), 6);
}
TEST(SkipWhiteSpace, StopsAtTheFirstOtherCharacter) {
    EXPECT_EQ(expatpp::skipWhiteSpace("  a  "), 2);
    EXPECT_EQ(expatpp::skipWhiteSpace("\v "), 0);
}

} // namespace
