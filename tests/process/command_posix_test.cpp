// VelcanCommand on POSIX systems: process groups and signals, the lookup of the program, the
// descriptors and signal dispositions a child starts with.
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <velcan/velcan.h>

#include "collector.h"
#include "process_tree.h"

namespace {

VelcanRunResult run(std::vector<const char*> words, Collector* output, double limit = 0,
                    double grace = 1) {
    words.push_back(nullptr);
    VelcanCommand command;
    command.SetArguments(words.data());
    command.SetOutputObserver(output);
    command.SetTimeLimit(limit);
    command.SetGracePeriod(grace);
    return command.Run();
}

// Runs with a time limit that strikes once the child has written `ready` (how far it got before
// the limit): on a busy machine the child may not get there in the first limit, so the limit is
// raised until it does. The last run's result; its output in `output`.
VelcanRunResult runUntilReadyThenLimited(const std::vector<const char*>& words, Collector* output,
                                         const std::string& ready, double grace = 1) {
    VelcanRunResult result{};
    for (double limit = 0.3; limit < 100; limit *= 4) {
        output->output.clear();
        result = run(words, output, limit, grace);
        if (output->output.find(ready) != std::string::npos) {
            break;
        }
    }
    return result;
}

TEST(CommandPosix, ProgramIsLookedUpOnTheChildsPath) {
    const std::string folder = temporaryFolder("velcan-command-path");
    const std::string file = folder + "/velcan-path-probe";
    std::ofstream(file) << "#!/bin/sh\necho found on the PATH it was given\n";
    chmod(file.c_str(), 0755);
    const char* const words[] = {"velcan-path-probe", nullptr};
    VelcanCommand command;
    command.SetArguments(words);
    Collector out;
    command.SetOutputObserver(&out);
    EXPECT_EQ(command.Run().end, VelcanRunEnd::ProgramNotStarted);
    command.SetEnvironment("PATH", (folder + ":/usr/bin:/bin").c_str());
    const VelcanRunResult result = command.Run();
    EXPECT_EQ(result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(out.output, "found on the PATH it was given\n");
    removeFolder(folder);
}

TEST(CommandPosix, ChildEndedByASignalIsSignaledWithItsNumber) {
    Collector out;
    const std::string child = helperProgram("velcan_test_child");
    const VelcanRunResult result = run({child.c_str(), "crash"}, &out);
    EXPECT_EQ(result.end, VelcanRunEnd::Signaled);
    EXPECT_EQ(result.code, SIGABRT);
}

TEST(CommandPosix, TimeLimitEndsEveryProcessOfAShellsTree) {
    Collector out;
    const VelcanRunResult result = runUntilReadyThenLimited(
        {"sh", "-c",
         "sleep 600 & echo $!; sleep 600 & echo $!; echo $$; echo ready; exec sleep 600"},
        &out, "ready\n");
    EXPECT_EQ(result.end, VelcanRunEnd::TimedOut);
    EXPECT_EQ(result.code, SIGTERM);
    std::vector<long> pids;
    std::size_t from = 0;
    for (std::size_t end; (end = out.output.find('\n', from)) != std::string::npos &&
                          out.output.compare(from, end - from, "ready") != 0;
         from = end + 1) {
        pids.push_back(std::stol(out.output.substr(from, end - from)));
    }
    ASSERT_EQ(pids.size(), 3u) << out.output;
    for (long pid : pids) {
        EXPECT_TRUE(processEnds(pid)) << "process " << pid << " outlived the run";
    }
}

TEST(CommandPosix, ChildThatIgnoresTermIsKilledAfterTheGrace) {
    Collector out;
    const std::string child = helperProgram("velcan_test_child");
    const VelcanRunResult result = runUntilReadyThenLimited(
        {child.c_str(), "ignore-term", "out", "ignoring\n", "sleep", "30000"}, &out, "ignoring\n",
        0.3);
    EXPECT_EQ(result.end, VelcanRunEnd::TimedOut);
    EXPECT_EQ(result.code, SIGKILL);
}

TEST(CommandPosix, NoGraceKillsAtOnce) {
    Collector out;
    // 30 s: a time limit that did not work would show as a run that exited.
    const VelcanRunResult result = run({"sleep", "30"}, &out, 0.2, 0);
    EXPECT_EQ(result.end, VelcanRunEnd::TimedOut);
    EXPECT_EQ(result.code, SIGKILL);
}

TEST(CommandPosix, ObserverThatTakesNoMoreClosesTheStreamAndTheChildGetsABrokenPipe) {
    Collector out(1);
    const std::string child = helperProgram("velcan_test_child");
    const VelcanRunResult result = run({child.c_str(), "zeros", "10000000"}, &out);
    EXPECT_EQ(result.end, VelcanRunEnd::Signaled);
    EXPECT_EQ(result.code, SIGPIPE);
}

TEST(CommandPosix, ChildGetsDescriptorsZeroToTwoAndNothingElse) {
    Collector out;
    const std::string child = helperProgram("velcan_test_child");
    EXPECT_EQ(run({child.c_str(), "fds"}, &out).end, VelcanRunEnd::Exited);
    EXPECT_EQ(out.output, "0 1 2\n");
}

TEST(CommandPosix, ChildStartsWithSigpipeAtItsDefaultWhenTheCallerIgnoresIt) {
    struct sigaction before;
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &before);
    Collector out;
    run({"grep", "^SigIgn:", "/proc/self/status"}, &out);
    sigaction(SIGPIPE, &before, nullptr);
    ASSERT_EQ(out.output.compare(0, 7, "SigIgn:"), 0) << out.output;
    const unsigned long long ignored = std::strtoull(out.output.c_str() + 7, nullptr, 16);
    EXPECT_EQ(ignored & (1ULL << (SIGPIPE - 1)), 0u) << out.output;
}

TEST(CommandPosix, ChildLeadsAProcessGroupOfItsOwn) {
    Collector out;
    run({"sh", "-c", "test \"$(ps -o pgid= -p $$ | tr -d ' ')\" = $$ && echo leader"}, &out);
    EXPECT_EQ(out.output, "leader\n");
}

TEST(CommandPosix, CancelFromASignalHandlerEndsTheRun) {
    static VelcanCancel* cancel = nullptr;
    VelcanCancel theCancel;
    cancel = &theCancel;
    struct sigaction action = {};
    action.sa_handler = [](int) { cancel->Cancel(); };
    struct sigaction before;
    sigaction(SIGALRM, &action, &before);
    VelcanCommand command;
    const char* const words[] = {"sleep", "600", nullptr};
    command.SetArguments(words);
    command.SetCancel(&theCancel);
    alarm(1);
    const VelcanRunResult result = command.Run();
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_EQ(result.end, VelcanRunEnd::Cancelled);
}

} // namespace
