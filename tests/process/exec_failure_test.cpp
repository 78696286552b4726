// Programs found but whose exec fails in the child: 127, the reason in errno, no observer
// call. A program of its own: valgrind, still running in the forked child, cannot survive
// these failed execs, so it does not run them (the program's label says so).
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "collector.h"
#include "support/deadline.h"
#include "support/temp_file.h"

namespace {

TEST(StartFailure, ScriptWhoseInterpreterIsMissingGives127WithNoSuchFile) {
    Script script("#!/nonexistent/velcan-interpreter\necho ran\n");
    EXPECT_EQ(launchExpectingNoRun(script.path()), notRunWith(ENOENT));
}
TEST(StartFailure, ScriptWhoseInterpreterIsADirectoryGives127WithAccessDenied) {
    Script script("#!/tmp\necho ran\n");
    EXPECT_EQ(launchExpectingNoRun(script.path()), notRunWith(EACCES));
}
TEST(StartFailure, ScriptWhoseInterpreterIsNotExecutableGives127WithAccessDenied) {
    TempFile interpreter("not a program\n");
    Script script("#!" + std::string(interpreter.path()) + "\necho ran\n");
    EXPECT_EQ(launchExpectingNoRun(script.path()), notRunWith(EACCES));
}
TEST(StartFailure, ScriptWhoseInterpreterIsASymbolicLinkLoopGives127WithTooManyLinks) {
    TempDir dir;
    ASSERT_EQ(symlink((dir.path + "/b").c_str(), (dir.path + "/a").c_str()), 0);
    ASSERT_EQ(symlink((dir.path + "/a").c_str(), (dir.path + "/b").c_str()), 0);
    Script script("#!" + dir.path + "/a\necho ran\n");
    EXPECT_EQ(launchExpectingNoRun(script.path()), notRunWith(ELOOP));
}
TEST(StartFailure, ProgramOpenForWritingGives127WithTextFileBusy) {
    TempDir dir;
    const std::string program = dir.path + "/busy";
    ASSERT_EQ(std::system(("cp /bin/true '" + program + "'").c_str()), 0);
    const int writer = open(program.c_str(), O_WRONLY);
    ASSERT_GE(writer, 0);
    EXPECT_EQ(launchExpectingNoRun(program), notRunWith(ETXTBSY));
    close(writer);
}
TEST(StartFailure, EnvironmentTooBigForTheProgramGives127WithArgumentListTooLong) {
    // One string above the kernel's limit for a single argument or variable (128 KiB).
    const std::string huge(200 * 1024, 'x');
    ASSERT_EQ(setenv("VELCAN_HUGE", huge.c_str(), 1), 0);
    const NotRun run = launchExpectingNoRun("true");
    unsetenv("VELCAN_HUGE");
    EXPECT_EQ(run, notRunWith(E2BIG));
}
TEST(StartFailure, ProgramRemovedAndPutBackWhileRunsStartEitherRunsOrGives127WithNoSuchFile) {
    // Another thread keeps removing the program and putting it back, so that some runs
    // find it when they look and miss it when the child starts it. Each run must either
    // have run it, or give 127 with ENOENT and no observer call: never an errno as exit
    // code.
    TempDir dir;
    const std::string program = dir.path + "/flicker";
    const std::string spare = dir.path + "/spare";
    // A binary: a script's interpreter would open the file again, after the exec.
    ASSERT_EQ(std::system(("cp /bin/echo '" + spare + "'").c_str()), 0);
    ASSERT_EQ(link(spare.c_str(), program.c_str()), 0);
    std::atomic<bool> stop(false);
    std::thread flicker([&] {
        while (!stop) {
            unlink(program.c_str());
            link(spare.c_str(), program.c_str());
        }
    });
    // Runs go on past the first 300 until both outcomes have been seen, so that the test
    // cannot pass without the race it is about.
    int ran = 0;
    int missed = 0;
    int wrong = 0;
    const auto giveUp = std::chrono::steady_clock::now() + kPatience;
    for (int i = 0;
         i < 300 || ((ran == 0 || missed == 0) && std::chrono::steady_clock::now() < giveUp); ++i) {
        Collector out(64);
        errno = 0;
        const int code = LaunchBlockingProcess((program + " ran").c_str(), &out);
        const int error = errno;
        if (code == 0 && out.output == "ran\n") {
            ++ran;
        } else if (code == 127 && error == ENOENT && out.bufferCalls == 0) {
            ++missed;
        } else {
            ++wrong;
            ADD_FAILURE() << "code " << code << ", errno " << error << ", output '" << out.output
                          << "'";
        }
    }
    stop = true;
    flicker.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(ran, 0) << "no run found the program";
    EXPECT_GT(missed, 0) << "no run missed the program: the race was never met";
}

} // namespace
