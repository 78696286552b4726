// VelcanCommand on POSIX systems: process groups and signals, the lookup of the program, the
// descriptors and signal dispositions a child starts with, a caller that ignores SIGCHLD.
#include <csignal>
#include <cstdlib>
#include <limits>
#include <fstream>
#include <string>
#include <vector>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <velcan/velcan.h>

#include "collector.h"
#include "process_tree.h"

namespace {

// A signal's disposition for the life of the object, then the one before it.
class Disposition {
  public:
    Disposition(int signal, void (*handler)(int), int flags = 0) : signal_(signal) {
        struct sigaction action = {};
        action.sa_handler = handler;
        action.sa_flags = flags;
        sigaction(signal, &action, &before_);
    }
    ~Disposition() { sigaction(signal_, &before_, nullptr); }
    Disposition(const Disposition&) = delete;
    Disposition& operator=(const Disposition&) = delete;

  private:
    int signal_;
    struct sigaction before_;
};

// Hands each piece on to `output`, and once it holds `ready`, triggers the cancel (once).
class CancellingCollector : public Collector {
  public:
    CancellingCollector(std::string ready, VelcanCancel* cancel, Collector* output)
        : ready_(std::move(ready)), cancel_(cancel), output_(output) {}
    void onPiece() override {
        output_->output = output;
        if (output.find(ready_) != std::string::npos) {
            cancel_->Cancel();
        }
    }

  private:
    std::string ready_;
    VelcanCancel* cancel_;
    Collector* output_;
};

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

// Runs until the child has written `ready`, then cancels: the tree is whole when the run is
// ended, however slowly it started. The result; the output in `output`.
VelcanRunResult runUntilReadyThenCancel(std::vector<const char*> words, const std::string& ready,
                                        Collector* output, double grace = 1) {
    words.push_back(nullptr);
    VelcanCancel cancel;
    VelcanCommand command;
    command.SetArguments(words.data());
    command.SetCancel(&cancel);
    command.SetGracePeriod(grace);
    CancellingCollector watcher(ready, &cancel, output);
    command.SetOutputObserver(&watcher);
    return command.Run();
}

TEST(CommandPosix, ProgramIsLookedUpOnTheChildsPath) {
    const std::string directory = temporaryDirectory("velcan-command-path");
    const std::string file = directory + "/velcan-path-probe";
    std::ofstream(file) << "#!/bin/sh\necho found on the PATH it was given\n";
    chmod(file.c_str(), 0755);
    const char* const words[] = {"velcan-path-probe", nullptr};
    VelcanCommand command;
    command.SetArguments(words);
    Collector out;
    command.SetOutputObserver(&out);
    EXPECT_EQ(command.Run().end, VelcanRunEnd::ProgramNotStarted);
    command.SetEnvironment("PATH", (directory + ":/usr/bin:/bin").c_str());
    const VelcanRunResult result = command.Run();
    EXPECT_EQ(result.end, VelcanRunEnd::Exited);
    EXPECT_EQ(out.output, "found on the PATH it was given\n");
    removeDirectory(directory);
}

TEST(CommandPosix, ChildEndedByASignalIsSignaledWithItsNumber) {
    Collector out;
    const std::string child = helperProgram("velcan_test_child");
    const VelcanRunResult result = run({child.c_str(), "crash"}, &out);
    EXPECT_EQ(result.end, VelcanRunEnd::Signaled);
    EXPECT_EQ(result.code, SIGABRT);
}

TEST(CommandPosix, EndingARunEndsEveryProcessOfAShellsTree) {
    Collector out;
    const VelcanRunResult result = runUntilReadyThenCancel(
        {"sh", "-c",
         "sleep 600 & echo $!; sleep 600 & echo $!; echo $$; echo ready; exec sleep 600"},
        "ready\n", &out);
    EXPECT_EQ(result.end, VelcanRunEnd::Cancelled);
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
    const VelcanRunResult result = runUntilReadyThenCancel(
        {child.c_str(), "ignore-term", "out", "ignoring\n", "sleep", "600000"}, "ignoring\n", &out,
        0.3);
    EXPECT_EQ(result.end, VelcanRunEnd::Cancelled);
    EXPECT_EQ(result.code, SIGKILL);
}

TEST(CommandPosix, GracePeriodLongerThanTheClockHoldsNeverKills) {
    Collector out;
    const std::string child = helperProgram("velcan_test_child");
    // Ignoring SIGTERM, the child ends by itself 300 ms later: no SIGKILL may come first.
    const VelcanRunResult result = runUntilReadyThenCancel(
        {child.c_str(), "ignore-term", "out", "ignoring\n", "sleep", "300", "exit", "4"},
        "ignoring\n", &out, std::numeric_limits<double>::infinity());
    EXPECT_EQ(result.end, VelcanRunEnd::Cancelled);
    EXPECT_EQ(result.code, 4);
}

TEST(CommandPosix, CallerThatIgnoresSigchldGetsNoSuccessItDidNotHave) {
    for (int way = 0; way < 2; ++way) {
        // SIG_IGN, or a handler with SA_NOCLDWAIT: either way the system keeps no status.
        Collector out;
        VelcanRunResult result;
        {
            const Disposition noWait(
                SIGCHLD, way == 0 ? SIG_IGN : [](int) {}, way == 0 ? 0 : SA_NOCLDWAIT);
            result = run({"sh", "-c", "echo ran; exit 5"}, &out);
        }
        EXPECT_EQ(out.output, "ran\n");
        EXPECT_EQ(result.end, VelcanRunEnd::Exited) << way;
        EXPECT_EQ(result.code, -1) << way;
        EXPECT_EQ(result.error, ECHILD) << way;
    }
}

TEST(CommandPosix, ChildStartsWithSigchldAtItsDefaultWhenTheCallerIgnoresIt) {
    const Disposition ignored(SIGCHLD, SIG_IGN);
    Collector out;
    const VelcanRunResult result = run({"sh", "-c", "sh -c 'exit 3'; echo $?"}, &out);
    EXPECT_EQ(out.output, "3\n");
    EXPECT_EQ(result.code, -1); // the run's own child is still reaped by the system
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
    Collector out;
    {
        const Disposition ignored(SIGPIPE, SIG_IGN);
        run({"grep", "^SigIgn:", "/proc/self/status"}, &out);
    }
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

namespace {

// Runs command with the caller's standard output (and error) sent to a file, and gives what
// the file got.
std::string runWithStandardHandlesTo(VelcanCommand& command, int fd) {
    char name[] = "/tmp/velcan-inherit-XXXXXX";
    const int file = mkstemp(name);
    const int saved = dup(fd);
    dup2(file, fd);
    command.Run();
    dup2(saved, fd);
    close(saved);
    std::ifstream in(name);
    std::string got((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    close(file);
    unlink(name);
    return got;
}

} // namespace

TEST(CommandPosix, InheritedOutputGoesToTheCallersOwnNotToAnObserver) {
    const std::string child = helperProgram("velcan_test_child");
    const char* const words[] = {child.c_str(), "out", "to the caller\\n", "err", "apart", nullptr};
    VelcanCommand command;
    command.SetArguments(words);
    Collector errors;
    command.SetErrorObserver(&errors);
    command.InheritOutput();
    EXPECT_EQ(runWithStandardHandlesTo(command, 1), "to the caller\n");
    EXPECT_EQ(errors.output, "apart");
}

TEST(CommandPosix, InheritedErrorGoesToTheCallersOwn) {
    const std::string child = helperProgram("velcan_test_child");
    const char* const words[] = {child.c_str(), "out", "read", "err", "to stderr", nullptr};
    VelcanCommand command;
    command.SetArguments(words);
    Collector out;
    command.SetOutputObserver(&out);
    command.InheritError();
    EXPECT_EQ(runWithStandardHandlesTo(command, 2), "to stderr");
    EXPECT_EQ(out.output, "read");
}

TEST(CommandPosix, AnObserverSetAfterInheritingTakesTheOutputBack) {
    const std::string child = helperProgram("velcan_test_child");
    const char* const words[] = {child.c_str(), "out", "observed", nullptr};
    VelcanCommand command;
    command.SetArguments(words);
    command.InheritOutput();
    Collector out;
    command.SetOutputObserver(&out);
    EXPECT_EQ(runWithStandardHandlesTo(command, 1), "");
    EXPECT_EQ(out.output, "observed");
}

TEST(CommandPosix, EndSignalIsSentFirstWhenTheRunIsEnded) {
    Collector out;
    const std::string child = helperProgram("velcan_test_child");
    const char* const words[] = {child.c_str(), "ignore-term", "out",  "ignoring\n",
                                 "sleep",       "600000",      nullptr};
    VelcanCancel cancel;
    VelcanCommand command;
    command.SetArguments(words);
    command.SetCancel(&cancel);
    command.SetEndSignal(SIGINT);
    CancellingCollector watcher("ignoring\n", &cancel, &out);
    command.SetOutputObserver(&watcher);
    const VelcanRunResult result = command.Run();
    EXPECT_EQ(result.end, VelcanRunEnd::Cancelled);
    EXPECT_EQ(result.code, SIGINT); // not SIGTERM, which the child ignores
}

TEST(CommandPosix, EndSignalThatIsNoSignalIsRefused) {
    for (const int signal : {-1, 65}) {
        VelcanCommand command;
        const char* const words[] = {"true", nullptr};
        command.SetArguments(words);
        command.SetEndSignal(signal);
        const VelcanRunResult result = command.Run();
        EXPECT_EQ(result.end, VelcanRunEnd::Refused) << signal;
        EXPECT_EQ(result.error, EINVAL) << signal;
    }
}

TEST(CommandPosix, DetailsTellHowTheChildItselfEndedWhenTheRunWasEnded) {
    Collector out;
    const std::string child = helperProgram("velcan_test_child");
    const char* const handled[] = {child.c_str(), "out", "ready\n", "sleep", "600000", nullptr};
    VelcanCancel cancel;
    VelcanCommand command;
    command.SetArguments(handled);
    command.SetCancel(&cancel);
    CancellingCollector watcher("ready\n", &cancel, &out);
    command.SetOutputObserver(&watcher);
    VelcanRunDetails details{};
    details.size = sizeof details;
    const VelcanRunResult result = command.Run(&details);
    EXPECT_EQ(result.end, VelcanRunEnd::Cancelled);
    EXPECT_EQ(details.childEnd, VelcanRunEnd::Signaled);
    EXPECT_EQ(result.code, SIGTERM);
}

TEST(CommandPosix, DetailsOfARunThatStartedNothingRepeatItsEnd) {
    VelcanCancel cancel;
    cancel.Cancel();
    VelcanCommand command;
    const char* const words[] = {"true", nullptr};
    command.SetArguments(words);
    command.SetCancel(&cancel);
    VelcanRunDetails details{};
    details.size = sizeof details;
    details.childEnd = VelcanRunEnd::Exited;
    EXPECT_EQ(command.Run(&details).end, VelcanRunEnd::Cancelled);
    EXPECT_EQ(details.childEnd, VelcanRunEnd::Cancelled);
}
