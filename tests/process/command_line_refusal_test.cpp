// Command lines the runner refuses rather than run in another form. Each returns 127 with
// errno set and calls no observer operation.
#include <cerrno>

#include <gtest/gtest.h>

#include "collector.h"

namespace {

const std::string kEcho = echoProgram();

// Room left for the rest of a line of 1023 characters after "echo ".
const std::size_t kRest = 1023 - kEcho.size() - 1;

std::string echoWithArguments(int count) {
    std::string line = kEcho;
    for (int i = 1; i < count; ++i) {
        line += " a";
    }
    return line;
}

TEST(CommandLineRefusal, EmptyLineIsNoSuchFile) {
    EXPECT_EQ(launchExpectingNoRun(""), notRunWith(ENOENT));
}

TEST(CommandLineRefusal, BlankLineIsNoSuchFile) {
    EXPECT_EQ(launchExpectingNoRun("    "), notRunWith(ENOENT));
}

TEST(CommandLineRefusal, NullLineIsNoSuchFile) {
    Collector out;
    errno = 0;
    EXPECT_EQ(LaunchBlockingProcess(nullptr, &out), 127);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(out.bufferCalls, 0);
}

TEST(CommandLineRefusal, LineLongerThan1023CharactersIsTooBig) {
    EXPECT_EQ(launchExpectingNoRun(kEcho + " " + std::string(kRest + 1, 'x')), notRunWith(E2BIG));
}

TEST(CommandLineRefusal, LineOf1023CharactersRuns) {
    EXPECT_EQ(launch((kEcho + " " + std::string(kRest, 'x'))),
              (Result{0, std::string(kRest, 'x') + "\n"}));
}

TEST(CommandLineRefusal, LengthIsCountedAfterDoublePercentsAreFolded) {
    // 1023 characters once each "%%" is one "%", 400 more as written.
    Collector out;
    const std::string percents(800, '%');
    EXPECT_EQ(LaunchBlockingProcess(
                  (kEcho + " " + percents + std::string(kRest - 400, 'y')).c_str(), &out),
              0);
    EXPECT_EQ(out.output, std::string(400, '%') + std::string(kRest - 400, 'y') + "\n");
    EXPECT_EQ(launchExpectingNoRun(kEcho + " " + percents + std::string(kRest - 399, 'y')),
              notRunWith(E2BIG));
}

TEST(CommandLineRefusal, MoreThan127ArgumentsIsTooBig) {
    EXPECT_EQ(launchExpectingNoRun(echoWithArguments(128)), notRunWith(E2BIG));
}

TEST(CommandLineRefusal, Exactly127ArgumentsRun) {
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(echoWithArguments(127).c_str(), &out), 0);
    EXPECT_EQ(out.output.size(), 126u * 2);
}

TEST(CommandLineRefusal, LonePercentSignIsInvalid) {
    for (const char* tail : {" %s", " 100%", " %d%%", " %%%"}) {
        const std::string line = kEcho + tail;
        EXPECT_EQ(launchExpectingNoRun(line), notRunWith(EINVAL)) << line;
    }
}

} // namespace
