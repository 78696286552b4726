// What the runner does with a command, its output and its exit, on every platform. The child
// is the test helper program (helpers/child.cpp).
#include <algorithm>
#include <array>
#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "collector.h"

namespace {

TEST(Runner, OutputArrivesExactlyWithNulAfterEachPieceAndTheExitCodeIsReturned) {
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(child("out one\\ntwo\\n out three exit 3").c_str(), &out), 3);
    EXPECT_EQ(out.output, "one\ntwo\nthree");
    EXPECT_TRUE(out.nulAfterEveryPiece);
}

TEST(Runner, StandardErrorArrivesInTheSameSequenceAsStandardOutput) {
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(
                  child("out 1\\n sleep 50 err 2\\n sleep 50 out 3\\n err 4\\n").c_str(), &out),
              0);
    EXPECT_EQ(out.output, "1\n2\n3\n4\n");
}

TEST(Runner, ChildReadingStandardInputSeesTheEndAtOnce) {
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(child("stdin out done").c_str(), &out), 0);
    EXPECT_EQ(out.output, "stdin: 0 bytes\ndone");
}

TEST(Runner, ProgramThatCannotBeFoundReturns127AndReceivesNothing) {
    EXPECT_EQ(launchExpectingNoRun("velcan-no-such-program --flag"), notRunWith(ENOENT));
}

TEST(Runner, ChildThatExits127ItselfIsReported127) {
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(child("exit 127").c_str(), &out), 127);
}

TEST(Runner, NullObserverReturnsTheExitCodeOnceTheChildEnds) {
    EXPECT_EQ(LaunchBlockingProcess(child("out ignored exit 9").c_str(), nullptr), 9);
}

TEST(Runner, CapacityOfOneEndsTheReadingAndTheRunnerOnlyWaits) {
    Collector out(1);
    EXPECT_EQ(LaunchBlockingProcess(child("out hello exit 4").c_str(), &out), 4);
    EXPECT_EQ(out.bufferCalls, 1);
    EXPECT_EQ(out.pieces, 0);
}

// Hands out the same buffer and capacity every time; the buffer sits between guard bytes
// that no read may touch.
class FixedObserver : public IBlockingProcessObserver {
  public:
    FixedObserver(bool nullBuffer, int capacity) : nullBuffer_(nullBuffer), capacity_(capacity) {
        memory_.fill('g');
    }
    int bufferCalls = 0;
    int pieces = 0;

    void GetOutputBuffer(char** buffer, int* capacity) override {
        ++bufferCalls;
        *buffer = nullBuffer_ ? nullptr : memory_.data() + 64;
        *capacity = capacity_;
    }
    void OutputReceived(int) override { ++pieces; }
    bool untouched() const {
        return std::all_of(memory_.begin(), memory_.end(), [](char c) { return c == 'g'; });
    }

  private:
    std::array<char, 128> memory_;
    bool nullBuffer_;
    int capacity_;
};

TEST(Runner, NullBufferFromTheObserverEndsTheReadingAndTheRunnerOnlyWaits) {
    FixedObserver observer(true, 4096);
    EXPECT_EQ(LaunchBlockingProcess(child("out hello exit 3").c_str(), &observer), 3);
    EXPECT_EQ(observer.bufferCalls, 1);
    EXPECT_EQ(observer.pieces, 0);
}

TEST(Runner, CapacityOfZeroEndsTheReadingWithoutWritingToTheBuffer) {
    FixedObserver observer(false, 0);
    EXPECT_EQ(LaunchBlockingProcess(child("out hello exit 3").c_str(), &observer), 3);
    EXPECT_EQ(observer.bufferCalls, 1);
    EXPECT_EQ(observer.pieces, 0);
    EXPECT_TRUE(observer.untouched());
}

TEST(Runner, NegativeCapacityEndsTheReadingWithoutWritingToTheBuffer) {
    FixedObserver observer(false, -5);
    EXPECT_EQ(LaunchBlockingProcess(child("out hello exit 4").c_str(), &observer), 4);
    EXPECT_EQ(observer.bufferCalls, 1);
    EXPECT_EQ(observer.pieces, 0);
    EXPECT_TRUE(observer.untouched());
}

TEST(Runner, SmallCapacityGivesPiecesOfCapacityLessOne) {
    Collector out(4);
    EXPECT_EQ(LaunchBlockingProcess(child("out abcdefghi").c_str(), &out), 0);
    EXPECT_EQ(out.output, "abcdefghi");
    EXPECT_EQ(out.pieces, 3);
    EXPECT_TRUE(out.nulAfterEveryPiece);
}

// An observer that keeps all output in one buffer, handing out its unused tail.
class TailObserver : public IBlockingProcessObserver {
  public:
    char data[4096];
    int used = 0;
    void GetOutputBuffer(char** buffer, int* capacity) override {
        *buffer = data + used;
        *capacity = static_cast<int>(sizeof data) - used;
    }
    void OutputReceived(int count) override { used += count; }
};

TEST(Runner, ObserverCanGatherIntoOneBufferByHandingOutItsTail) {
    TailObserver out;
    EXPECT_EQ(LaunchBlockingProcess(
                  child("out a\\n sleep 50 out bb\\n sleep 50 out ccc\\n").c_str(), &out),
              0);
    EXPECT_EQ(std::string(out.data), "a\nbb\nccc\n");
    EXPECT_EQ(out.used, 9);
}

TEST(Runner, DoublePercentRunsAsOnePercent) {
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(child("args 50%% %%d %%%%").c_str(), &out), 0);
    EXPECT_EQ(out.output, "[50%][%d][%%]");
}

TEST(Runner, DoubleQuotesKeepSpacesInsideAWord) {
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(child("args \"a  b\" c").c_str(), &out), 0);
    EXPECT_EQ(out.output, "[a  b][c]");
}

TEST(Runner, LargeOutputArrivesWhole) {
    Collector out(65536);
    EXPECT_EQ(LaunchBlockingProcess(child("zeros 3000000").c_str(), &out), 0);
    EXPECT_EQ(out.output, std::string(3000000, '\0'));
    EXPECT_TRUE(out.nulAfterEveryPiece);
}

} // namespace
