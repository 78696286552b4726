// Programs that are found but cannot be started, whenever that shows (before the child
// exists or when it tries to run the program): 127, the reason in errno, no observer call;
// and errno left as the caller set it when the child ran. (Failed execs valgrind cannot
// follow are in exec_failure_test.cpp, the open-file limit in descriptor_limit_test.cpp.)
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "collector.h"
#include "support/deadline.h"
#include "support/forked.h"
#include "support/open_files.h"
#include "support/temp_file.h"

namespace {

TEST(StartFailure, ProgramThatIsASymbolicLinkLoopGives127WithTooManyLinks) {
    TempDir dir;
    ASSERT_EQ(symlink((dir.path + "/b").c_str(), (dir.path + "/a").c_str()), 0);
    ASSERT_EQ(symlink((dir.path + "/a").c_str(), (dir.path + "/b").c_str()), 0);
    EXPECT_EQ(launchExpectingNoRun(dir.path + "/a"), notRunWith(ELOOP));
}

TEST(StartFailure, FileWithoutInterpreterLineThatIsNotABinaryRunsThroughTheShell) {
    Script script("echo \"ran by the shell $1\"\nexit 5\n");
    EXPECT_EQ(launch((script.path() + " too")), (Result{5, "ran by the shell too\n"}));
}

TEST(StartFailure, ErrnoIsLeftAsTheCallerSetItWhenTheChildRan) {
    // The program is found in the last directory of PATH, after misses in the others.
    TempDir empty;
    const std::string saved = std::getenv("PATH");
    ASSERT_EQ(setenv("PATH", (empty.path + ":/nonexistent/velcan:" + saved).c_str(), 1), 0);
    Collector out;
    errno = 1234;
    const int code = LaunchBlockingProcess(shell("exit 127").c_str(), &out);
    const int error = errno;
    setenv("PATH", saved.c_str(), 1);
    EXPECT_EQ(code, 127);
    EXPECT_EQ(error, 1234);
}

TEST(StartFailure, ErrnoIsLeftAsTheCallerSetItAfterAnOrdinaryRun) {
    Collector out;
    errno = 0;
    EXPECT_EQ(LaunchBlockingProcess("echo hello", &out), 0);
    EXPECT_EQ(errno, 0);
    errno = EINTR;
    EXPECT_EQ(LaunchBlockingProcess("true", nullptr), 0);
    EXPECT_EQ(errno, EINTR);
}

} // namespace
