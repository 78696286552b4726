// Checking and splitting a command line, against the process layer's own splitting.
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include <ace/Process.h>
#include <gtest/gtest.h>

#include "process/command_line.h"
#include "process/options.h"

namespace {

using velcan::CommandLine;
using velcan::parseCommandLine;

// The words the process layer makes of a line, given to it through the runner's own options
// (the line as the runner's format, "%%" and all).
std::vector<std::string> processLayerWords(const std::string& line) {
    const std::unique_ptr<ACE_Process_Options> options = velcan::makeProcessOptions(line.c_str());
    std::vector<std::string> words;
    for (ACE_TCHAR* const* word = options->command_line_argv(); *word != nullptr; ++word) {
        words.push_back(*word);
    }
    return words;
}

TEST(CommandLine, FoldsDoublePercents) {
    CommandLine parsed;
    ASSERT_EQ(parseCommandLine("echo 50%% %%%%", &parsed), 0);
    EXPECT_STREQ(parsed.program, "echo");
    EXPECT_EQ(parsed.argumentCount, 3);
}

TEST(CommandLine, RefusesALonePercent) {
    CommandLine parsed;
    EXPECT_EQ(parseCommandLine("echo %", &parsed), EINVAL);
    EXPECT_EQ(parseCommandLine("echo %d", &parsed), EINVAL);
    EXPECT_EQ(parseCommandLine("%%%", &parsed), EINVAL);
}

TEST(CommandLine, RefusesEmptyBlankAndNull) {
    CommandLine parsed;
    EXPECT_EQ(parseCommandLine("", &parsed), ENOENT);
    EXPECT_EQ(parseCommandLine("     ", &parsed), ENOENT);
    EXPECT_EQ(parseCommandLine(nullptr, &parsed), ENOENT);
}

TEST(CommandLine, RefusesMoreThan1023FoldedCharacters) {
    CommandLine parsed;
    EXPECT_EQ(parseCommandLine(std::string(1023, 'a').c_str(), &parsed), 0);
    EXPECT_EQ(parseCommandLine(std::string(1024, 'a').c_str(), &parsed), E2BIG);
    EXPECT_EQ(parseCommandLine(("a " + std::string(2042, '%')).c_str(), &parsed), 0);
    EXPECT_EQ(parseCommandLine(("a " + std::string(2044, '%')).c_str(), &parsed), E2BIG);
}

TEST(CommandLine, RefusesMoreThan127Arguments) {
    std::string line = "x";
    for (int i = 1; i < 127; ++i) {
        line += " y";
    }
    CommandLine parsed;
    EXPECT_EQ(parseCommandLine(line.c_str(), &parsed), 0);
    EXPECT_EQ(parsed.argumentCount, 127);
    EXPECT_EQ(parseCommandLine((line + " z").c_str(), &parsed), E2BIG);
}

TEST(CommandLine, SplitsLikeTheProcessLayer) {
    const char* lines[] = {
        "echo a \"b c\" 'd e' f\\ g",
        "  lead  and   trail  ",
        "a\"b c\"d e",
        "x\ty",
        "u \"unterminated",
        "e \"\" f",
        "q 'it\"s' z",
        "x \"a\"\"b\"",
        "'a'b",
        "\"",
        "\"\"",
        "\"a b\"c\"d e\"",
        "a\" b\"",
        "  \"  \" x",
        "'x",
        "a\"",
        "prog",
        "echo 50%% done %%%%",
    };
    for (const char* line : lines) {
        CommandLine parsed;
        ASSERT_EQ(parseCommandLine(line, &parsed), 0) << line;
        const std::vector<std::string> expected = processLayerWords(line);
        ASSERT_FALSE(expected.empty()) << line;
        EXPECT_EQ(parsed.argumentCount, static_cast<int>(expected.size())) << line;
        EXPECT_EQ(std::string(parsed.program), expected[0]) << line;
    }
}

} // namespace
