// VelcanCommand on every system: the command, its folder, environment and input, its output
// and errors, how a run ends, the time limit, the cancel and the end of a whole tree.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <velcan/velcan.h>

#include "collector.h"
#include "process_tree.h"

namespace {

struct Ran {
    VelcanRunResult result;
    std::string output;
    std::string errors;
};

std::vector<const char*> argv(const std::vector<std::string>& words) {
    std::vector<const char*> list;
    for (const std::string& w : words) {
        list.push_back(w.c_str());
    }
    list.push_back(nullptr);
    return list;
}

// The test child with these actions, as an argument list.
std::vector<std::string> childDoing(std::vector<std::string> actions) {
    actions.insert(actions.begin(), helperProgram("velcan_test_child"));
    return actions;
}

Ran runWith(VelcanCommand& command, bool errorsApart = false) {
    Collector output;
    Collector errors;
    command.SetOutputObserver(&output);
    command.SetErrorObserver(errorsApart ? &errors : nullptr);
    Ran ran;
    ran.result = command.Run();
    ran.output = output.output;
    ran.errors = errors.output;
    return ran;
}

Ran runArguments(const std::vector<std::string>& words) {
    VelcanCommand command;
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    return runWith(command);
}

// The process ids a run's output lists, one a line.
std::vector<long> pidsIn(const std::string& output) {
    std::vector<long> pids;
    std::size_t from = 0;
    while (from < output.size()) {
        const std::size_t end = output.find('\n', from);
        const std::string line = output.substr(from, end - from);
        if (!line.empty() && line.find_first_not_of("0123456789") == std::string::npos) {
            pids.push_back(std::stol(line));
        }
        if (end == std::string::npos) {
            break;
        }
        from = end + 1;
    }
    return pids;
}

// Hands on each piece, and once the output holds `marker`, does `then` (once).
class WatchingCollector : public Collector {
  public:
    WatchingCollector(std::string marker, std::function<void()> then)
        : marker_(std::move(marker)), then_(std::move(then)) {}
    void onPiece() override {
        if (!done_ && output.find(marker_) != std::string::npos) {
            done_ = true;
            then_();
        }
    }

  private:
    std::string marker_;
    std::function<void()> then_;
    bool done_ = false;
};

TEST(Command, ArgumentListRunsTheProgramWithExactlyThoseArguments) {
    const Ran ran = runArguments(childDoing(
        {"args", "a b", "\"quoted\"", "100%", "", "back\\slash\\", "tab\there", "'single'"}));
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.result.code, 0);
    EXPECT_EQ(ran.output, "[a b][\"quoted\"][100%][][back\\slash\\][tab\there]['single']");
}

TEST(Command, ExitStatusOfTheChildIsTheCode) {
    const Ran ran = runArguments(childDoing({"out", "done\\n", "exit", "3"}));
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.result.code, 3);
    EXPECT_EQ(ran.result.error, 0);
    EXPECT_EQ(ran.output, "done\n");
}

TEST(Command, CommandLineIsTakenAsLaunchBlockingProcessTakesIt) {
    VelcanCommand command;
    command.SetCommandLine((helperProgram("velcan_test_child") + " args \"a b\" 100%%").c_str());
    const Ran ran = runWith(command);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.output, "[a b][100%]");
}

TEST(Command, CommandLineWithALonePercentSignIsRefused) {
    VelcanCommand command;
    command.SetCommandLine((helperProgram("velcan_test_child") + " args 100%").c_str());
    const Ran ran = runWith(command);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Refused);
    EXPECT_EQ(ran.result.error, EINVAL);
}

TEST(Command, CommandLineOverTheRunnersLimitsIsRefused) {
    VelcanCommand command;
    command.SetCommandLine(
        (helperProgram("velcan_test_child") + std::string(1100, ' ') + "x").c_str());
    EXPECT_EQ(runWith(command).result.end, VelcanRunEnd::Refused);
    EXPECT_EQ(runWith(command).result.error, E2BIG);
}

TEST(Command, ArgumentListHasNoLimitButTheSystems) {
    std::vector<std::string> words = childDoing({"args"});
    std::string expected;
    // 20,000 characters: over LaunchBlockingProcess's limits, within Windows' 32,767.
    for (int i = 0; i < 500; ++i) {
        words.push_back(std::string(40, static_cast<char>('a' + i % 26)));
        expected += "[" + words.back() + "]";
    }
    const Ran ran = runArguments(words);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.output, expected);
}

TEST(Command, NoCommandIsRefused) {
    VelcanCommand command;
    EXPECT_EQ(runWith(command).result.end, VelcanRunEnd::Refused);
    const char* const empty[] = {nullptr};
    command.SetArguments(empty);
    const Ran ran = runWith(command);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Refused);
    EXPECT_EQ(ran.result.error, EINVAL);
}

TEST(Command, ProgramThatIsNotThereIsNotStartedWithENOENT) {
    const Ran ran = runArguments({"velcan-no-such-program-anywhere", "x"});
    EXPECT_EQ(ran.result.end, VelcanRunEnd::ProgramNotStarted);
    EXPECT_EQ(ran.result.error, ENOENT);
    EXPECT_EQ(ran.result.code, 0);
    EXPECT_EQ(ran.output, "");
}

TEST(Command, ErrnoIsLeftAsTheCallerSetIt) {
    errno = 1234;
    runArguments({"velcan-no-such-program-anywhere"});
    EXPECT_EQ(errno, 1234);
    runArguments(childDoing({"exit", "0"}));
    EXPECT_EQ(errno, 1234);
}

TEST(Command, OutputAndErrorsAreMergedByDefault) {
    const Ran ran = runArguments(childDoing({"out", "o1 ", "err", "e1 ", "out", "o2"}));
    EXPECT_EQ(ran.output, "o1 e1 o2");
}

TEST(Command, ErrorsGoToTheirOwnObserverWhenOneIsSet) {
    VelcanCommand command;
    const std::vector<std::string> words = childDoing({"out", "o1 ", "err", "e1 ", "out", "o2"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    const Ran ran = runWith(command, true);
    EXPECT_EQ(ran.output, "o1 o2");
    EXPECT_EQ(ran.errors, "e1 ");
}

TEST(Command, NoOutputObserverDiscardsTheOutputWithoutBlockingTheChild) {
    VelcanCommand command;
    const std::vector<std::string> words = childDoing({"zeros", "1000000", "exit", "4"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    const VelcanRunResult result = command.Run();
    EXPECT_EQ(result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(result.code, 4);
}

TEST(Command, WorkingDirectoryIsWhereTheChildStarts) {
    const std::string folder = temporaryFolder("velcan-command-folder");
    VelcanCommand command;
    const std::vector<std::string> words = childDoing({"cwd"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    command.SetWorkingDirectory(folder.c_str());
    const Ran ran = runWith(command);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(sameFolder(ran.output.substr(0, ran.output.size() - 1), folder), true)
        << ran.output << " is not " << folder;
    removeFolder(folder);
}

TEST(Command, MissingWorkingDirectoryIsASetupFailureNotAMissingProgram) {
    VelcanCommand command;
    const std::vector<std::string> words = childDoing({"cwd"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    command.SetWorkingDirectory("velcan-no-such-folder/below");
    const Ran ran = runWith(command);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::SetupFailed);
    EXPECT_EQ(ran.result.error, ENOENT);
    EXPECT_EQ(ran.output, "");
}

TEST(Command, EnvironmentVariablesAreSetAndRemovedOnTopOfTheCallers) {
    setVariable("VELCAN_TEST_INHERITED", "kept");
    setVariable("VELCAN_TEST_REMOVED", "there");
    VelcanCommand command;
    const std::vector<std::string> words =
        childDoing({"env", "VELCAN_TEST_INHERITED", "env", "VELCAN_TEST_REMOVED", "env",
                    "VELCAN_TEST_SET", "env", "VELCAN_TEST_TWICE"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    command.UnsetEnvironment("VELCAN_TEST_REMOVED");
    command.SetEnvironment("VELCAN_TEST_SET", "caf\xC3\xA9 = 1");
    command.SetEnvironment("VELCAN_TEST_TWICE", "first");
    command.SetEnvironment("VELCAN_TEST_TWICE", "second");
    const Ran ran = runWith(command);
    EXPECT_EQ(ran.output, "kept\n(unset)\ncaf\xC3\xA9 = 1\nsecond\n");
    // The caller's own environment is as it was.
    EXPECT_EQ(variableOf("VELCAN_TEST_REMOVED"), "there");
    EXPECT_EQ(variableOf("VELCAN_TEST_SET"), "(unset)");
}

TEST(Command, VariableNameThatIsEmptyOrHoldsEqualsIsRefused) {
    for (const char* name : {"", "A=B"}) {
        VelcanCommand command;
        const std::vector<std::string> words = childDoing({"exit", "0"});
        const std::vector<const char*> list = argv(words);
        command.SetArguments(list.data());
        command.SetEnvironment(name, "x");
        const Ran ran = runWith(command);
        EXPECT_EQ(ran.result.end, VelcanRunEnd::Refused) << name;
        EXPECT_EQ(ran.result.error, EINVAL) << name;
    }
}

TEST(Command, NoInputGivesTheChildEndOfInputAtOnce) {
    const Ran ran = runArguments(childDoing({"stdin"}));
    EXPECT_EQ(ran.output, "stdin: 0 bytes\n");
}

TEST(Command, InputFromMemoryLargerThanThePipeWhileTheChildWritesMoreThanThePipeHolds) {
    std::string input;
    for (int i = 0; input.size() < 3 * 1024 * 1024; ++i) {
        input += std::to_string(i) + "\n";
    }
    VelcanCommand command;
    const std::vector<std::string> words = childDoing({"cat"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    command.SetInput(input.data(), input.size());
    const Ran ran = runWith(command);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.output.size(), input.size());
    EXPECT_TRUE(ran.output == input);
}

TEST(Command, InputThatTheChildDoesNotReadDoesNotHoldTheRun) {
    const std::string input(4 * 1024 * 1024, 'x');
    VelcanCommand command;
    const std::vector<std::string> words = childDoing({"out", "ignored its input", "exit", "5"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    command.SetInput(input.data(), input.size());
    const Ran ran = runWith(command);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.result.code, 5);
    EXPECT_EQ(ran.output, "ignored its input");
}

TEST(Command, InputFromAFile) {
    const std::string folder = temporaryFolder("velcan-command-input");
    const std::string file = folder + "/input.txt";
    std::ofstream(file, std::ios::binary) << std::string(100000, 'y');
    VelcanCommand command;
    const std::vector<std::string> words = childDoing({"stdin"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    command.SetInputFile(file.c_str());
    EXPECT_EQ(runWith(command).output, "stdin: 100000 bytes\n");
    command.SetInputFile((folder + "/missing.txt").c_str());
    const Ran missing = runWith(command);
    EXPECT_EQ(missing.result.end, VelcanRunEnd::SetupFailed);
    EXPECT_EQ(missing.result.error, ENOENT);
    removeFolder(folder);
}

TEST(Command, TimeLimitEndsTheChildAndTheGrandchildItStarted) {
    VelcanCommand command;
    const std::vector<std::string> words =
        childDoing({"grandchild", "600000", "pid", "sleep", "600000"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    // The child lists the grandchild's id and its own once both exist. Where starting them
    // takes longer than the limit (a busy machine, an emulated one), the limit is raised until
    // the whole tree is there when it strikes; whatever a run listed must end with it.
    std::vector<long> pids;
    for (double limit = 0.5; pids.size() < 2 && limit < 100; limit *= 4) {
        command.SetTimeLimit(limit);
        const Ran ran = runWith(command);
        EXPECT_EQ(ran.result.end, VelcanRunEnd::TimedOut) << ran.output << ran.errors;
        pids = pidsIn(ran.output);
        for (long pid : pids) {
            EXPECT_TRUE(processEnds(pid)) << "process " << pid << " outlived the run";
        }
    }
    EXPECT_EQ(pids.size(), 2u) << "the child and the grandchild never both started in time";
}

TEST(Command, TimeLimitNotReachedLeavesTheRunAsItEnded) {
    VelcanCommand command;
    const std::vector<std::string> words = childDoing({"out", "quick", "exit", "7"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    command.SetTimeLimit(600);
    const Ran ran = runWith(command);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.result.code, 7);
}

TEST(Command, CancelFromAnotherThreadEndsTheRunAndItsTree) {
    VelcanCancel cancel;
    std::atomic<bool> started(false);
    VelcanCommand command;
    const std::vector<std::string> words =
        childDoing({"grandchild", "600000", "out", "ready\\n", "sleep", "600000"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    command.SetCancel(&cancel);
    WatchingCollector output("ready", [&] { started = true; });
    command.SetOutputObserver(&output);
    std::thread canceller([&] {
        while (!started) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        cancel.Cancel();
    });
    const VelcanRunResult result = command.Run();
    canceller.join();
    EXPECT_EQ(result.end, VelcanRunEnd::Cancelled);
    EXPECT_TRUE(cancel.IsCancelled());
    const std::vector<long> pids = pidsIn(output.output);
    ASSERT_EQ(pids.size(), 1u) << output.output;
    EXPECT_TRUE(processEnds(pids[0])) << "the grandchild outlived the run";
}

TEST(Command, ObserverStopsTheRunThroughTheCancel) {
    VelcanCancel cancel;
    VelcanCommand command;
    const std::vector<std::string> words = childDoing({"out", "stop here\\n", "sleep", "600000"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    command.SetCancel(&cancel);
    WatchingCollector output("stop here", [&] { cancel.Cancel(); });
    command.SetOutputObserver(&output);
    const VelcanRunResult result = command.Run();
    EXPECT_EQ(result.end, VelcanRunEnd::Cancelled);
    EXPECT_EQ(output.output, "stop here\n");
}

TEST(Command, CancelledBeforeTheRunStartsNothing) {
    VelcanCancel cancel;
    cancel.Cancel();
    VelcanCommand command;
    const std::vector<std::string> words = childDoing({"out", "ran"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    command.SetCancel(&cancel);
    Ran ran = runWith(command);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Cancelled);
    EXPECT_EQ(ran.output, "");
    cancel.Reset();
    EXPECT_FALSE(cancel.IsCancelled());
    ran = runWith(command);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.output, "ran");
}

TEST(Command, ChildThatEndsWhileItsGrandchildHoldsTheOutputIsWaitedForByDefault) {
    VelcanCommand command;
    const std::vector<std::string> words = childDoing({"grandchild", "300", "exit", "2"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    const Ran ran = runWith(command);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.result.code, 2);
    const std::vector<long> pids = pidsIn(ran.output);
    ASSERT_EQ(pids.size(), 1u) << ran.output;
    // What the grandchild wrote after its sleep, long after the child ended, was read.
    EXPECT_NE(ran.output.find("grandchild ended\n"), std::string::npos) << ran.output;
    EXPECT_TRUE(processEnds(pids[0]));
}

TEST(Command, ChildThatEndsEndsTheOthersWhenAsked) {
    VelcanCommand command;
    const std::vector<std::string> words = childDoing({"grandchild", "600000", "exit", "2"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    command.SetEndOthersWithChild(true);
    const Ran ran = runWith(command);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.result.code, 2);
    const std::vector<long> pids = pidsIn(ran.output);
    ASSERT_EQ(pids.size(), 1u) << ran.output;
    EXPECT_TRUE(processEnds(pids[0])) << "the grandchild outlived the run";
}

TEST(Command, ConcurrentRunsDoNotHoldEachOthersOutput) {
    VelcanCancel cancel;
    std::thread longRun([&] {
        VelcanCommand command;
        const std::vector<std::string> words = childDoing({"sleep", "600000"});
        const std::vector<const char*> list = argv(words);
        command.SetArguments(list.data());
        command.SetCancel(&cancel);
        runWith(command);
    });
    // Each short run returns at the end of its output, which only its own child held.
    for (int i = 0; i < 20; ++i) {
        const Ran ran = runArguments(childDoing({"out", "short"}));
        EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
        EXPECT_EQ(ran.output, "short");
    }
    cancel.Cancel();
    longRun.join();
}

} // namespace
