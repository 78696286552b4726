// Windows command lines made from argument lists: split back by Microsoft's C runtime rules
// (a splitter written from those rules checks each line), and cmd's line for a batch file.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "process/windows_quoting.h"

namespace {

using velcan::isBatchFile;
using velcan::lineForCmd;
using velcan::quoteForWindows;

// The C runtime's splitting of the arguments after the program: blanks separate; 2n
// backslashes and a quote give n backslashes and toggle quoting; 2n+1 and a quote give n and a
// literal quote; backslashes elsewhere are literal; "" inside quotes is a literal quote.
std::vector<std::string> splitAsTheRuntimeDoes(const std::string& line) {
    std::vector<std::string> words;
    std::size_t i = 0;
    // The program: up to the next blank, or between quotes.
    std::string program;
    if (line[0] == '"') {
        const std::size_t end = line.find('"', 1);
        program = line.substr(1, end - 1);
        i = end + 1;
    } else {
        i = line.find_first_of(" \t");
        program = line.substr(0, i);
    }
    words.push_back(program);
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) {
            ++i;
        }
        if (i >= line.size()) {
            break;
        }
        std::string word;
        bool quoted = false;
        while (i < line.size() && (quoted || (line[i] != ' ' && line[i] != '\t'))) {
            std::size_t backslashes = 0;
            while (i < line.size() && line[i] == '\\') {
                ++backslashes;
                ++i;
            }
            if (i < line.size() && line[i] == '"') {
                word.append(backslashes / 2, '\\');
                if (backslashes % 2 == 1) {
                    word += '"';
                } else if (quoted && i + 1 < line.size() && line[i + 1] == '"') {
                    word += '"';
                    ++i;
                } else {
                    quoted = !quoted;
                }
                ++i;
            } else {
                word.append(backslashes, '\\');
                if (i < line.size() && (quoted || (line[i] != ' ' && line[i] != '\t'))) {
                    word += line[i++];
                }
            }
        }
        words.push_back(word);
    }
    return words;
}

TEST(WindowsQuoting, EveryArgumentComesBackExactlyAsTheRuntimeSplitsTheLine) {
    const std::vector<std::vector<std::string>> cases = {
        {"prog.exe", "plain", "two words", ""},
        {"C:\\Program Files\\app.exe", "a\"b", "\"", "\"\"", "say \"hi\""},
        {"p", "back\\slash", "trailing\\", "trailing two\\\\", "\\\"", "\\\\\"x"},
        {"p", "tab\there", "new\nline", "vt\vx", "%PATH%", "&|<>^()!", "caf\xC3\xA9"},
        {"p", " lead", "trail ", "  ", "a\\ b\\"},
    };
    for (const auto& arguments : cases) {
        const std::string line = quoteForWindows(arguments);
        EXPECT_EQ(splitAsTheRuntimeDoes(line), arguments) << line;
    }
}

TEST(WindowsQuoting, PlainWordsStayBare) {
    EXPECT_EQ(quoteForWindows({"prog", "a", "b\\c", "--x=1"}), "prog a b\\c --x=1");
}

TEST(WindowsQuoting, BatchFilesAreKnownByTheirExtensionInAnyLetterCase) {
    EXPECT_TRUE(isBatchFile("C:\\x\\build.bat"));
    EXPECT_TRUE(isBatchFile("RUN.CMD"));
    EXPECT_TRUE(isBatchFile("a.Bat"));
    EXPECT_FALSE(isBatchFile("a.exe"));
    EXPECT_FALSE(isBatchFile("bat"));
    EXPECT_FALSE(isBatchFile("a.batch"));
}

TEST(WindowsQuoting, BatchArgumentsCmdActsOnOutsideQuotesAreQuoted) {
    std::string line;
    std::size_t refused = 99;
    ASSERT_TRUE(
        lineForCmd("C:\\my dir\\b.bat",
                   {"b.bat", "a&b", "x|y", "<in>", "c^d", "(e)", "!f!", "plain", "", "two words"},
                   &line, &refused));
    EXPECT_EQ(line, "\"\"C:\\my dir\\b.bat\" \"a&b\" \"x|y\" \"<in>\" \"c^d\" \"(e)\" \"!f!\" "
                    "plain \"\" \"two words\"\"");
}

TEST(WindowsQuoting, BatchArgumentWithAQuoteAPercentOrALineBreakIsRefused) {
    for (const char* bad : {"a\"b", "%PATH%", "50%", "a\rb", "a\nb"}) {
        std::string line;
        std::size_t refused = 99;
        EXPECT_FALSE(lineForCmd("b.bat", {"b.bat", "fine", bad}, &line, &refused)) << bad;
        EXPECT_EQ(refused, 2u) << bad;
    }
    std::string line;
    std::size_t refused = 99;
    EXPECT_FALSE(lineForCmd("C:\\100%\\b.bat", {"b.bat"}, &line, &refused));
    EXPECT_EQ(refused, 0u);
}

} // namespace
