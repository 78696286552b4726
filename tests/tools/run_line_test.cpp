// Which arguments velcan run refuses to hand to a batch file (on Windows, where cmd reads
// them); the rule itself is the same everywhere, so it is tested here.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "run_line.h"

namespace {

std::string problem(std::vector<const char*> args) {
    return batchFileArgumentProblem(args);
}

TEST(BatchFileArguments, PlainWordsAndSpacesArePassed) {
    EXPECT_EQ(problem({"C:\\tools\\build.bat", "a b", "release", "x.y-z_1"}), "");
}

TEST(BatchFileArguments, EachCharacterCmdActsOnIsRefused) {
    for (const char* arg :
         {"a&b", "a|b", "a<b", "a>b", "50%", "a^b", "(a)", "a!", "\"a\"", "a\nb", "a\rb"}) {
        EXPECT_NE(problem({"build.cmd", "ok", arg}), "") << arg;
    }
}

TEST(BatchFileArguments, TheRefusalNamesTheArgumentAndTheCharacter) {
    EXPECT_EQ(problem({"run.bat", "ok", "a&echo injected"}),
              "argument 3 ('a&echo injected') cannot be passed safely to a batch file: cmd "
              "would read its '&'");
}

TEST(BatchFileArguments, TheExtensionIsMatchedInAnyLetterCase) {
    EXPECT_NE(problem({"BUILD.BAT", "a&b"}), "");
    EXPECT_NE(problem({"Build.Cmd", "a&b"}), "");
}

TEST(BatchFileArguments, OtherProgramsTakeEveryArgument) {
    EXPECT_EQ(problem({"tool.exe", "a&b", "50%"}), "");
    EXPECT_EQ(problem({"batch", "a&b"}), "");
    EXPECT_EQ(problem({"x.bat.exe", "a&b"}), "");
}

} // namespace
