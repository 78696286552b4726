// A spawn that produces no process. This program makes fork fail on request.
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include <gtest/gtest.h>

#include "collector.h"

namespace {
bool failFork = false;
}

extern "C" pid_t fork() {
    if (failFork) {
        errno = EAGAIN;
        return -1;
    }
    using Fork = pid_t (*)();
    return reinterpret_cast<Fork>(dlsym(RTLD_NEXT, "fork"))();
}

namespace {

TEST(SpawnFailure, ReturnsAndCallsNoObserverOperationWhenNoProcessComesIntoBeing) {
    Collector out;
    failFork = true;
    const int code = LaunchBlockingProcess("echo never", &out);
    failFork = false;
    EXPECT_EQ(code, 127);
    EXPECT_EQ(out.bufferCalls, 0);
    EXPECT_EQ(out.pieces, 0);
}

TEST(SpawnFailure, DoesNotReapOtherChildrenOfTheApplication) {
    const pid_t other = fork();
    ASSERT_GE(other, 0);
    if (other == 0) {
        usleep(200 * 1000);
        _exit(42);
    }
    failFork = true;
    EXPECT_EQ(LaunchBlockingProcess("echo never", nullptr), 127);
    failFork = false;
    int status = 0;
    ASSERT_EQ(waitpid(other, &status, 0), other);
    EXPECT_EQ(WEXITSTATUS(status), 42);
}

} // namespace
