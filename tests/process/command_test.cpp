// VelcanCommand on every system: the command, its directory, environment and input, its output
// and errors, how a run ends, the time limit, the cancel and the end of a whole tree.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <limits>
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

// Runs `words` with the command's settings and observers.
VelcanRunResult runArgumentsAsSet(VelcanCommand& command, const std::vector<std::string>& words) {
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    return command.Run();
}

// Runs `words` with the command's settings, its output (and errors, if apart) gathered.
Ran runArguments(VelcanCommand& command, const std::vector<std::string>& words,
                 bool errorsApart = false) {
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    return runWith(command, errorsApart);
}

// A test's command: set what the run needs on `command`, then run it in one line.
class Command : public ::testing::Test {
  protected:
    VelcanCommand command;

    Ran run(const std::vector<std::string>& words, bool errorsApart = false) {
        return runArguments(command, words, errorsApart);
    }
    // With the observers a test set on `command` itself.
    VelcanRunResult runAsSet(const std::vector<std::string>& words) {
        return runArgumentsAsSet(command, words);
    }
};

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

TEST_F(Command, ArgumentListRunsTheProgramWithExactlyThoseArguments) {
    const Ran ran = run(childDoing(
        {"args", "a b", "\"quoted\"", "100%", "", "back\\slash\\", "tab\there", "'single'"}));
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.result.code, 0);
    EXPECT_EQ(ran.output, "[a b][\"quoted\"][100%][][back\\slash\\][tab\there]['single']");
}

TEST_F(Command, ExitStatusOfTheChildIsTheCode) {
    const Ran ran = run(childDoing({"out", "done\\n", "exit", "3"}));
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.result.code, 3);
    EXPECT_EQ(ran.result.error, 0);
    EXPECT_EQ(ran.output, "done\n");
}

TEST_F(Command, CommandLineIsTakenAsLaunchBlockingProcessTakesIt) {
    command.SetCommandLine((helperProgram("velcan_test_child") + " args \"a b\" 100%%").c_str());
    const Ran ran = runWith(command);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.output, "[a b][100%]");
}

TEST_F(Command, CommandLineWithALonePercentSignIsRefused) {
    command.SetCommandLine((helperProgram("velcan_test_child") + " args 100%").c_str());
    const Ran ran = runWith(command);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Refused);
    EXPECT_EQ(ran.result.error, EINVAL);
}

TEST_F(Command, CommandLineOverTheRunnersLimitsIsRefused) {
    command.SetCommandLine(
        (helperProgram("velcan_test_child") + std::string(1100, ' ') + "x").c_str());
    const Ran ran = runWith(command);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Refused);
    EXPECT_EQ(ran.result.error, E2BIG);
}

TEST_F(Command, ArgumentListHasNoLimitButTheSystems) {
    std::vector<std::string> words = childDoing({"args"});
    std::string expected;
    // 20,000 characters: over LaunchBlockingProcess's limits, within Windows' 32,767.
    for (int i = 0; i < 500; ++i) {
        words.push_back(std::string(40, static_cast<char>('a' + i % 26)));
        expected += "[" + words.back() + "]";
    }
    const Ran ran = run(words);
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.output, expected);
}

TEST_F(Command, NoCommandIsRefused) {
    EXPECT_EQ(runWith(command).result.end, VelcanRunEnd::Refused);
    const Ran ran = run({});
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Refused);
    EXPECT_EQ(ran.result.error, EINVAL);
}

TEST_F(Command, ProgramThatIsNotThereIsNotStartedWithENOENT) {
    const Ran ran = run({"velcan-no-such-program-anywhere", "x"});
    EXPECT_EQ(ran.result.end, VelcanRunEnd::ProgramNotStarted);
    EXPECT_EQ(ran.result.error, ENOENT);
    EXPECT_EQ(ran.result.code, 0);
    EXPECT_EQ(ran.output, "");
}

TEST_F(Command, ErrnoIsLeftAsTheCallerSetIt) {
    errno = 1234;
    run({"velcan-no-such-program-anywhere"});
    EXPECT_EQ(errno, 1234);
    run(childDoing({"exit", "0"}));
    EXPECT_EQ(errno, 1234);
}

TEST_F(Command, OutputAndErrorsAreMergedByDefault) {
    const Ran ran = run(childDoing({"out", "o1 ", "err", "e1 ", "out", "o2"}));
    EXPECT_EQ(ran.output, "o1 e1 o2");
}

TEST_F(Command, ErrorsGoToTheirOwnObserverWhenOneIsSet) {
    const Ran ran = run(childDoing({"out", "o1 ", "err", "e1 ", "out", "o2"}), true);
    EXPECT_EQ(ran.output, "o1 o2");
    EXPECT_EQ(ran.errors, "e1 ");
}

TEST_F(Command, NoOutputObserverDiscardsTheOutputWithoutBlockingTheChild) {
    const VelcanRunResult result = runAsSet(childDoing({"zeros", "1000000", "exit", "4"}));
    EXPECT_EQ(result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(result.code, 4);
}

TEST_F(Command, WorkingDirectoryIsWhereTheChildStarts) {
    const std::string directory = temporaryDirectory("velcan-command-directory");
    command.SetWorkingDirectory(directory.c_str());
    const Ran ran = run(childDoing({"cwd"}));
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(sameDirectory(ran.output.substr(0, ran.output.size() - 1), directory), true)
        << ran.output << " is not " << directory;
    removeDirectory(directory);
}

TEST_F(Command, MissingWorkingDirectoryIsASetupFailureNotAMissingProgram) {
    command.SetWorkingDirectory("velcan-no-such-directory/below");
    const Ran ran = run(childDoing({"cwd"}));
    EXPECT_EQ(ran.result.end, VelcanRunEnd::SetupFailed);
    EXPECT_EQ(ran.result.error, ENOENT);
    EXPECT_EQ(ran.output, "");
}

TEST_F(Command, EnvironmentVariablesAreSetAndRemovedOnTopOfTheCallers) {
    setVariable("VELCAN_TEST_INHERITED", "kept");
    setVariable("VELCAN_TEST_REMOVED", "there");
    command.UnsetEnvironment("VELCAN_TEST_REMOVED");
    command.SetEnvironment("VELCAN_TEST_SET", "caf\xC3\xA9 = 1");
    command.SetEnvironment("VELCAN_TEST_TWICE", "first");
    command.SetEnvironment("VELCAN_TEST_TWICE", "second");
    const Ran ran = run(childDoing({"env", "VELCAN_TEST_INHERITED", "env", "VELCAN_TEST_REMOVED",
                                    "env", "VELCAN_TEST_SET", "env", "VELCAN_TEST_TWICE"}));
    EXPECT_EQ(ran.output, "kept\n(unset)\ncaf\xC3\xA9 = 1\nsecond\n");
    // The caller's own environment is as it was.
    EXPECT_EQ(variableOf("VELCAN_TEST_REMOVED"), "there");
    EXPECT_EQ(variableOf("VELCAN_TEST_SET"), "(unset)");
}

TEST_F(Command, ClearedEnvironmentHoldsOnlyTheVariablesSet) {
    setVariable("VELCAN_TEST_INHERITED", "kept");
    command.ClearEnvironment();
    command.SetEnvironment("VELCAN_TEST_ONLY", "1");
    const Ran ran =
        run(childDoing({"env", "VELCAN_TEST_INHERITED", "env", "PATH", "env", "VELCAN_TEST_ONLY"}));
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.output, "(unset)\n(unset)\n1\n");
}

TEST_F(Command, OutputPastItsLimitIsReadAndDroppedAndSaidCut) {
    Collector out;
    command.SetOutputObserver(&out);
    command.SetOutputLimit(1000);
    const std::vector<std::string> words = childDoing({"zeros", "3000000", "out", "end"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    VelcanRunDetails details{};
    details.size = sizeof details;
    const VelcanRunResult result = command.Run(&details);
    // The child wrote all of it (never blocked) and exited; the observer got the first 1000.
    EXPECT_EQ(result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(out.output.size(), 1000u);
    EXPECT_TRUE(details.outputCut);
    EXPECT_FALSE(details.errorsCut);
}

TEST_F(Command, OutputWithinItsLimitIsNotCut) {
    Collector out;
    command.SetOutputObserver(&out);
    command.SetOutputLimit(5);
    const std::vector<std::string> words = childDoing({"out", "12345"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    VelcanRunDetails details{};
    details.size = sizeof details;
    command.Run(&details);
    EXPECT_EQ(out.output, "12345");
    EXPECT_FALSE(details.outputCut);
}

TEST_F(Command, ErrorLimitThatEndsTheRunCancelsItOncePassed) {
    Collector out;
    Collector errors;
    command.SetOutputObserver(&out);
    command.SetErrorObserver(&errors);
    command.SetErrorLimit(10, true);
    const std::vector<std::string> words =
        childDoing({"err", "0123456789 and more", "sleep", "600000"});
    const std::vector<const char*> list = argv(words);
    command.SetArguments(list.data());
    VelcanRunDetails details{};
    details.size = sizeof details;
    const VelcanRunResult result = command.Run(&details);
    EXPECT_EQ(result.end, VelcanRunEnd::Cancelled);
    EXPECT_EQ(errors.output, "0123456789");
    EXPECT_TRUE(details.errorsCut);
}

TEST_F(Command, VariableNameThatIsEmptyOrHoldsEqualsIsRefused) {
    for (const char* name : {"", "A=B"}) {
        VelcanCommand other;
        other.SetEnvironment(name, "x");
        const Ran ran = runArguments(other, childDoing({"exit", "0"}));
        EXPECT_EQ(ran.result.end, VelcanRunEnd::Refused) << name;
        EXPECT_EQ(ran.result.error, EINVAL) << name;
    }
}

TEST_F(Command, NoInputGivesTheChildEndOfInputAtOnce) {
    EXPECT_EQ(run(childDoing({"stdin"})).output, "stdin: 0 bytes\n");
}

TEST_F(Command, InputFromMemoryLargerThanThePipeWhileTheChildWritesMoreThanThePipeHolds) {
    std::string input;
    for (int i = 0; input.size() < 3 * 1024 * 1024; ++i) {
        input += std::to_string(i) + "\n";
    }
    command.SetInput(input.data(), input.size());
    const Ran ran = run(childDoing({"cat"}));
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.output.size(), input.size());
    EXPECT_TRUE(ran.output == input);
}

TEST_F(Command, InputThatTheChildDoesNotReadDoesNotHoldTheRun) {
    const std::string input(4 * 1024 * 1024, 'x');
    command.SetInput(input.data(), input.size());
    const Ran ran = run(childDoing({"out", "ignored its input", "exit", "5"}));
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.result.code, 5);
    EXPECT_EQ(ran.output, "ignored its input");
}

TEST_F(Command, InputFromAFile) {
    const std::string directory = temporaryDirectory("velcan-command-input");
    const std::string file = directory + "/input.txt";
    std::ofstream(file, std::ios::binary) << std::string(100000, 'y');
    command.SetInputFile(file.c_str());
    EXPECT_EQ(run(childDoing({"stdin"})).output, "stdin: 100000 bytes\n");
    command.SetInputFile((directory + "/missing.txt").c_str());
    const Ran missing = run(childDoing({"stdin"}));
    EXPECT_EQ(missing.result.end, VelcanRunEnd::SetupFailed);
    EXPECT_EQ(missing.result.error, ENOENT);
    removeDirectory(directory);
}

TEST_F(Command, TimeLimitEndsTheRunNoSoonerThanItsTime) {
    // A child that never ends by itself: whenever the limit strikes, it is what ends the run.
    command.SetTimeLimit(0.5);
    const auto started = std::chrono::steady_clock::now();
    const Ran ran = run(childDoing({"sleep", "600000"}));
    const auto took = std::chrono::steady_clock::now() - started;
    EXPECT_EQ(ran.result.end, VelcanRunEnd::TimedOut);
    EXPECT_GE(took, std::chrono::milliseconds(500));
}

TEST_F(Command, TimeLimitNotReachedLeavesTheRunAsItEnded) {
    command.SetTimeLimit(600);
    const Ran ran = run(childDoing({"out", "quick", "exit", "7"}));
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.result.code, 7);
}

TEST_F(Command, TimeLimitLongerThanTheClockHoldsIsNoLimit) {
    for (double limit : {1e10, 1e16, 1e300, std::numeric_limits<double>::infinity()}) {
        command.SetTimeLimit(limit);
        const Ran ran = run(childDoing({"sleep", "100", "out", "slept", "exit", "6"}));
        EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited) << limit;
        EXPECT_EQ(ran.result.code, 6) << limit;
        EXPECT_EQ(ran.output, "slept") << limit;
    }
}

TEST_F(Command, TimeLimitOrGraceThatIsNegativeOrNoNumberIsRefused) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (double bad : {-1.0, -0.001, nan, -std::numeric_limits<double>::infinity()}) {
        command.SetTimeLimit(bad);
        Ran ran = run(childDoing({"out", "ran"}));
        EXPECT_EQ(ran.result.end, VelcanRunEnd::Refused) << bad;
        EXPECT_EQ(ran.result.error, EINVAL) << bad;
        EXPECT_EQ(ran.output, "") << bad;
        command.SetTimeLimit(0);
        command.SetGracePeriod(bad);
        ran = run(childDoing({"out", "ran"}));
        EXPECT_EQ(ran.result.end, VelcanRunEnd::Refused) << bad;
        EXPECT_EQ(ran.result.error, EINVAL) << bad;
        command.SetGracePeriod(1);
    }
}

TEST_F(Command, CancelAfterTheTreeIsReadyEndsTheChildAndItsGrandchild) {
    VelcanCancel cancel;
    command.SetCancel(&cancel);
    // The child lists the grandchild's id once it exists, then says it is ready: only then is
    // the cancel triggered, so the whole tree is known when the run is ended.
    WatchingCollector output("ready", [&] { cancel.Cancel(); });
    command.SetOutputObserver(&output);
    const VelcanRunResult result =
        runAsSet(childDoing({"grandchild", "600000", "pid", "out", "ready\\n", "sleep", "600000"}));
    EXPECT_EQ(result.end, VelcanRunEnd::Cancelled);
    const std::vector<long> pids = pidsIn(output.output);
    ASSERT_EQ(pids.size(), 2u) << output.output;
    for (long pid : pids) {
        EXPECT_TRUE(processEnds(pid)) << "process " << pid << " outlived the run";
    }
}

TEST_F(Command, CancelFromAnotherThreadEndsTheRunAndItsTree) {
    VelcanCancel cancel;
    std::atomic<bool> started(false);
    command.SetCancel(&cancel);
    WatchingCollector output("ready", [&] { started = true; });
    command.SetOutputObserver(&output);
    std::thread canceller([&] {
        while (!started) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        cancel.Cancel();
    });
    const VelcanRunResult result =
        runAsSet(childDoing({"grandchild", "600000", "out", "ready\\n", "sleep", "600000"}));
    canceller.join();
    EXPECT_EQ(result.end, VelcanRunEnd::Cancelled);
    EXPECT_TRUE(cancel.IsCancelled());
    const std::vector<long> pids = pidsIn(output.output);
    ASSERT_EQ(pids.size(), 1u) << output.output;
    EXPECT_TRUE(processEnds(pids[0])) << "the grandchild outlived the run";
}

TEST_F(Command, ObserverStopsTheRunThroughTheCancel) {
    VelcanCancel cancel;
    command.SetCancel(&cancel);
    WatchingCollector output("stop here", [&] { cancel.Cancel(); });
    command.SetOutputObserver(&output);
    const VelcanRunResult result = runAsSet(childDoing({"out", "stop here\\n", "sleep", "600000"}));
    EXPECT_EQ(result.end, VelcanRunEnd::Cancelled);
    EXPECT_EQ(output.output, "stop here\n");
}

TEST_F(Command, CancelledBeforeTheRunStartsNothing) {
    VelcanCancel cancel;
    cancel.Cancel();
    command.SetCancel(&cancel);
    Ran ran = run(childDoing({"out", "ran"}));
    // Not a child started and ended at once, which would have a code and no ECANCELED.
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Cancelled);
    EXPECT_EQ(ran.result.code, 0);
    EXPECT_EQ(ran.result.error, ECANCELED);
    EXPECT_EQ(ran.output, "");
    cancel.Reset();
    EXPECT_FALSE(cancel.IsCancelled());
    ran = run(childDoing({"out", "ran"}));
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.output, "ran");
}

TEST_F(Command, CancelledAfterTheStartSaysHowTheChildEnded) {
    VelcanCancel cancel;
    command.SetCancel(&cancel);
    WatchingCollector output("ready", [&] { cancel.Cancel(); });
    command.SetOutputObserver(&output);
    const VelcanRunResult result = runAsSet(childDoing({"out", "ready", "sleep", "600000"}));
    EXPECT_EQ(result.end, VelcanRunEnd::Cancelled);
    EXPECT_EQ(result.error, 0);
    EXPECT_NE(result.code, 0); // SIGTERM's number, or the code its job was terminated with
}

TEST_F(Command, ChildThatEndsWhileItsGrandchildHoldsTheOutputIsWaitedForByDefault) {
    const Ran ran = run(childDoing({"grandchild", "300", "exit", "2"}));
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.result.code, 2);
    const std::vector<long> pids = pidsIn(ran.output);
    ASSERT_EQ(pids.size(), 1u) << ran.output;
    // What the grandchild wrote after its sleep, long after the child ended, was read.
    EXPECT_NE(ran.output.find("grandchild ended\n"), std::string::npos) << ran.output;
    EXPECT_TRUE(processEnds(pids[0]));
}

TEST_F(Command, ChildThatEndsEndsTheOthersWhenAsked) {
    command.SetEndOthersWithChild(true);
    const Ran ran = run(childDoing({"grandchild", "600000", "exit", "2"}));
    EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(ran.result.code, 2);
    const std::vector<long> pids = pidsIn(ran.output);
    ASSERT_EQ(pids.size(), 1u) << ran.output;
    EXPECT_TRUE(processEnds(pids[0])) << "the grandchild outlived the run";
}

TEST_F(Command, ConcurrentRunsDoNotHoldEachOthersOutput) {
    VelcanCancel cancel;
    std::thread longRun([&] {
        VelcanCommand other;
        other.SetCancel(&cancel);
        runArguments(other, childDoing({"sleep", "600000"}));
    });
    // Each short run returns at the end of its output, which only its own child held.
    for (int i = 0; i < 20; ++i) {
        const Ran ran = run(childDoing({"out", "short"}));
        EXPECT_EQ(ran.result.end, VelcanRunEnd::Exited);
        EXPECT_EQ(ran.output, "short");
    }
    cancel.Cancel();
    longRun.join();
}

} // namespace
