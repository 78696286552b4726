// Command lines the runner refuses rather than run in another form. Each returns 127 with
// errno set and calls no observer operation.
#include <cerrno>

#include <gtest/gtest.h>

#include "collector.h"

namespace {

std::string echoWithArguments(int count) {
    std::string line = "echo";
    for (int i = 1; i < count; ++i) {
        line += " a";
    }
    return line;
}

TEST(CommandLineRefusal, EmptyLineIsNoSuchFile) {
    const NotRun r = launchExpectingNoRun("");
    EXPECT_EQ(r.code, 127);
    EXPECT_EQ(r.error, ENOENT);
    EXPECT_EQ(r.observerCalls, 0);
}

TEST(CommandLineRefusal, BlankLineIsNoSuchFile) {
    const NotRun r = launchExpectingNoRun("    ");
    EXPECT_EQ(r.code, 127);
    EXPECT_EQ(r.error, ENOENT);
    EXPECT_EQ(r.observerCalls, 0);
}

TEST(CommandLineRefusal, NullLineIsNoSuchFile) {
    Collector out;
    errno = 0;
    EXPECT_EQ(LaunchBlockingProcess(nullptr, &out), 127);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(out.bufferCalls, 0);
}

TEST(CommandLineRefusal, LineLongerThan1023CharactersIsTooBig) {
    const NotRun r = launchExpectingNoRun("echo " + std::string(1019, 'x'));
    EXPECT_EQ(r.code, 127);
    EXPECT_EQ(r.error, E2BIG);
    EXPECT_EQ(r.observerCalls, 0);
}

TEST(CommandLineRefusal, LineOf1023CharactersRuns) {
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(("echo " + std::string(1018, 'x')).c_str(), &out), 0);
    EXPECT_EQ(out.output, std::string(1018, 'x') + "\n");
}

TEST(CommandLineRefusal, LengthIsCountedAfterDoublePercentsAreFolded) {
    // 1023 characters once each "%%" is one "%", 1423 as written.
    Collector out;
    const std::string percents(800, '%');
    EXPECT_EQ(LaunchBlockingProcess(("echo " + percents + std::string(618, 'y')).c_str(), &out), 0);
    EXPECT_EQ(out.output, std::string(400, '%') + std::string(618, 'y') + "\n");
    const NotRun r = launchExpectingNoRun("echo " + percents + std::string(619, 'y'));
    EXPECT_EQ(r.error, E2BIG);
}

TEST(CommandLineRefusal, MoreThan127ArgumentsIsTooBig) {
    const NotRun r = launchExpectingNoRun(echoWithArguments(128));
    EXPECT_EQ(r.code, 127);
    EXPECT_EQ(r.error, E2BIG);
    EXPECT_EQ(r.observerCalls, 0);
}

TEST(CommandLineRefusal, Exactly127ArgumentsRun) {
    Collector out;
    EXPECT_EQ(LaunchBlockingProcess(echoWithArguments(127).c_str(), &out), 0);
    EXPECT_EQ(out.output.size(), 126u * 2);
}

TEST(CommandLineRefusal, LonePercentSignIsInvalid) {
    for (const char* line : {"echo %s", "echo 100%", "echo %d%%", "echo %%%"}) {
        const NotRun r = launchExpectingNoRun(line);
        EXPECT_EQ(r.code, 127) << line;
        EXPECT_EQ(r.error, EINVAL) << line;
        EXPECT_EQ(r.observerCalls, 0) << line;
    }
}

} // namespace
