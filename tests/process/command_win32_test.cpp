// VelcanCommand on Windows: UTF-8 outside the code page through the wide API, batch files'
// arguments escaped for cmd or refused, exceptions, and the job every process of a run is in.
#include <fstream>
#include <string>
#include <vector>

#include <windows.h>

#include <gtest/gtest.h>

#include <velcan/velcan.h>

#include "collector.h"
#include "process_tree.h"
#include "support/emulated_cpu.h"

namespace {

struct Ran {
    VelcanRunResult result;
    std::string output;
};

Ran run(const std::vector<std::string>& words, const char* directory = nullptr) {
    std::vector<const char*> list;
    for (const std::string& w : words) {
        list.push_back(w.c_str());
    }
    list.push_back(nullptr);
    VelcanCommand command;
    command.SetArguments(list.data());
    command.SetWorkingDirectory(directory);
    Collector out;
    command.SetOutputObserver(&out);
    Ran ran;
    ran.result = command.Run();
    ran.output = out.output;
    return ran;
}

// Greek, Japanese and an emoji: outside any one ANSI code page.
const std::string kWorld = "\xCE\xBA\xCF\x8C\xCF\x83\xCE\xBC\xCE\xBF\xCF\x82-\xE6\x97\xA5\xE6\x9C"
                           "\xAC-\xF0\x9F\x8C\x8D";

TEST(CommandWin32, ArgumentsOutsideTheCodePageReachTheChildAsWritten) {
    const Ran ran = run({helperProgram("velcan_test_child"), "wargs", kWorld, "a b " + kWorld, ""});
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.output, "[" + kWorld + "][a b " + kWorld + "][]");
}

TEST(CommandWin32, DirectoryAndVariableOutsideTheCodePage) {
    const std::string directory = temporaryDirectory("velcan-" + kWorld);
    VelcanCommand command;
    const std::string child = helperProgram("velcan_test_child");
    const char* const words[] = {child.c_str(), "cwd", "env", "VELCAN_TEST_WORLD", nullptr};
    command.SetArguments(words);
    command.SetWorkingDirectory(directory.c_str());
    command.SetEnvironment("VELCAN_TEST_WORLD", kWorld.c_str());
    Collector out;
    command.SetOutputObserver(&out);
    const VelcanRunResult result = command.Run();
    EXPECT_EQ(result.end, VelcanRunEnd::Exited);
    const std::size_t lineEnd = out.output.find('\n');
    ASSERT_NE(lineEnd, std::string::npos) << out.output;
    EXPECT_TRUE(sameDirectory(out.output.substr(0, lineEnd), directory)) << out.output;
    EXPECT_EQ(out.output.substr(lineEnd + 1), kWorld + "\n");
    removeDirectory(directory);
}

TEST(CommandWin32, VariableNamesCompareWithoutRegardToLetterCase) {
    SetEnvironmentVariableA("VELCAN_TEST_CASE", "caller's");
    VelcanCommand command;
    const std::string child = helperProgram("velcan_test_child");
    const char* const words[] = {child.c_str(), "env", "VELCAN_TEST_CASE", nullptr};
    command.SetArguments(words);
    command.UnsetEnvironment("velcan_test_case");
    Collector out;
    command.SetOutputObserver(&out);
    command.Run();
    SetEnvironmentVariableA("VELCAN_TEST_CASE", nullptr);
    EXPECT_EQ(out.output, "(unset)\n");
}

// A batch file that prints its first arguments as it got them (%~1 would take the quotes off
// and make its own echo act on what they kept from cmd).
std::string batchFile(const std::string& directory) {
    const std::string file = directory + "\\echo args.bat";
    std::ofstream(file, std::ios::binary) << "@echo [%1][%2][%3][%4]\r\n";
    return file;
}

TEST(CommandWin32, BatchFileArgumentsThatCmdActsOnArePassedSafely) {
    const std::string directory = temporaryDirectory("velcan-batch");
    const std::string file = batchFile(directory);
    const Ran ran = run({file, "a&b|c", "x^y!z", "<in> (out)", "plain"});
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    // Quoted where cmd would act on them, so cmd passes them on as they are.
    EXPECT_EQ(ran.output, "[\"a&b|c\"][\"x^y!z\"][\"<in> (out)\"][plain]\r\n");
    removeDirectory(directory);
}

TEST(CommandWin32, BatchFileArgumentWithAPercentAQuoteOrALineBreakIsRefusedAndNothingRuns) {
    const std::string directory = temporaryDirectory("velcan-batch-refused");
    const std::string file = batchFile(directory);
    for (const char* bad : {"%PATH%", "a\"&calc", "line\nbreak", "50%"}) {
        const Ran ran = run({file, "fine", bad});
        EXPECT_EQ(ran.result.end, VelcanRunEnd::Refused) << bad;
        EXPECT_EQ(ran.result.error, EINVAL) << bad;
        EXPECT_EQ(ran.output, "") << bad;
    }
    removeDirectory(directory);
}

TEST(CommandWin32, ChildEndedByAnExceptionIsSignaledWithItsCode) {
    const Ran ran = run({helperProgram("velcan_test_child"), "raise", "C0000094"});
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Signaled);
    EXPECT_EQ(ran.result.code, static_cast<int>(0xC0000094u));
}

TEST(CommandWin32, ExitCodeAbove255ComesBackWhole) {
    const Ran ran = run({helperProgram("velcan_test_child"), "exit", "70000"});
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.result.code, 70000);
}

TEST(CommandWin32, DirectoryAsProgramIsNotStartedWithEACCES) {
    const std::string directory = temporaryDirectory("velcan-directory-program");
    const Ran ran = run({directory});
    EXPECT_EQ(ran.result.end, VelcanRunEnd::ProgramNotStarted);
    EXPECT_EQ(ran.result.error, EACCES);
    removeDirectory(directory);
}

TEST(CommandWin32, ProgramInTheCurrentDirectoryIsNotPickedByItsBareName) {
    // A bare name is looked for in the application's directory, the system directories and PATH,
    // never the current directory, where a file could stand in for a system program.
    const std::string directory = temporaryDirectory("velcan-current-directory");
    const std::string copy = directory + "\\velcan-current-directory-probe.exe";
    CopyFileW(wideOf(helperProgram("velcan_test_child")).c_str(), wideOf(copy).c_str(), FALSE);
    wchar_t before[MAX_PATH + 1];
    GetCurrentDirectoryW(MAX_PATH + 1, before);
    SetCurrentDirectoryW(wideOf(directory).c_str());
    const Ran ran = run({"velcan-current-directory-probe", "out", "ran"});
    SetCurrentDirectoryW(before);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::ProgramNotStarted);
    EXPECT_EQ(ran.result.error, ENOENT);
    removeDirectory(directory);
}

} // namespace
