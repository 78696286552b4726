// VelcanCommand on POSIX systems: programs whose exec fails, which valgrind cannot follow (its
// own exec reports other errors), so they are a program of their own.
#include <fstream>
#include <string>
#include <vector>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <velcan/velcan.h>

#include "collector.h"
#include "process_tree.h"

namespace {

VelcanRunResult run(std::vector<const char*> words, Collector* output) {
    words.push_back(nullptr);
    VelcanCommand command;
    command.SetArguments(words.data());
    command.SetOutputObserver(output);
    return command.Run();
}

TEST(CommandExecFailure, DirectoryAsProgramIsNotStartedWithEACCES) {
    Collector out;
    const VelcanRunResult result = run({"/tmp"}, &out);
    EXPECT_EQ(result.end, VelcanRunEnd::ProgramNotStarted);
    EXPECT_EQ(result.error, EACCES);
}

TEST(CommandExecFailure, FileWithoutExecutePermissionIsNotStartedWithEACCES) {
    const std::string directory = temporaryDirectory("velcan-command-noexec");
    const std::string file = directory + "/plain";
    std::ofstream(file) << "echo no\n";
    Collector out;
    const VelcanRunResult result = run({file.c_str()}, &out);
    EXPECT_EQ(result.end, VelcanRunEnd::ProgramNotStarted);
    EXPECT_EQ(result.error, EACCES);
    removeDirectory(directory);
}

TEST(CommandExecFailure, ScriptWithoutAnInterpreterLineRunsThroughTheShell) {
    const std::string directory = temporaryDirectory("velcan-command-script");
    const std::string file = directory + "/script";
    std::ofstream(file) << "echo \"from sh: $1\"\n";
    chmod(file.c_str(), 0755);
    Collector out;
    const VelcanRunResult result = run({file.c_str(), "arg"}, &out);
    EXPECT_EQ(result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(out.output, "from sh: arg\n");
    removeDirectory(directory);
}

} // namespace
