// A spawn that produces no process, or a child that cannot run the program. This program
// makes fork, or the child's exec, fail on request with a chosen errno.
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include <gtest/gtest.h>

#include "collector.h"

namespace {
bool failFork = false;
int forkError = EAGAIN;
int execError = 0;
} // namespace

extern "C" pid_t fork() {
    if (failFork) {
        errno = forkError;
        return -1;
    }
    using Fork = pid_t (*)();
    return reinterpret_cast<Fork>(dlsym(RTLD_NEXT, "fork"))();
}

extern "C" int execvp(const char* file, char* const argv[]) {
    if (execError != 0) {
        errno = execError;
        return -1;
    }
    using Exec = int (*)(const char*, char* const[]);
    return reinterpret_cast<Exec>(dlsym(RTLD_NEXT, "execvp"))(file, argv);
}

namespace {

TEST(SpawnFailure, ReturnsAndCallsNoObserverOperationWhenNoProcessComesIntoBeing) {
    failFork = true;
    const NotRun run = launchExpectingNoRun("echo never");
    failFork = false;
    EXPECT_EQ(run, notRunWith(EAGAIN));
}

TEST(SpawnFailure, NoMemoryForTheChildGives127WithNoMemory) {
    failFork = true;
    forkError = ENOMEM;
    const NotRun run = launchExpectingNoRun("echo never");
    failFork = false;
    forkError = EAGAIN;
    EXPECT_EQ(run, notRunWith(ENOMEM));
}

TEST(SpawnFailure, NoMemoryToRunTheProgramGives127WithNoMemory) {
    execError = ENOMEM;
    const NotRun run = launchExpectingNoRun("echo never");
    execError = 0;
    EXPECT_EQ(run, notRunWith(ENOMEM));
}

TEST(SpawnFailure, AnyErrorOfTheChildsExecGives127WithThatErrorNotAnExitCode) {
    for (const int error : {EIO, EPERM, ENOEXEC, EFAULT, 200}) {
        execError = error;
        const NotRun run = launchExpectingNoRun("echo never");
        execError = 0;
        EXPECT_EQ(run, notRunWith(error)) << "exec error " << error;
    }
}

TEST(SpawnFailure, ChildThatCannotRunTheProgramIsReaped) {
    execError = EIO;
    EXPECT_EQ(LaunchBlockingProcess("echo never", nullptr), 127);
    execError = 0;
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

// The runner's child fails its exec and is waited for; another child of the application, which
// has already ended and waits to be reaped, is not taken in its place.
TEST(SpawnFailure, DoesNotReapOtherChildrenOfTheApplication) {
    const pid_t other = fork();
    ASSERT_GE(other, 0);
    if (other == 0) {
        _exit(42);
    }
    siginfo_t info = {};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(other), &info, WEXITED | WNOWAIT), 0);
    execError = EIO;
    EXPECT_EQ(LaunchBlockingProcess("echo never", nullptr), 127);
    EXPECT_EQ(LaunchBlockingProcess("echo never", nullptr), 127);
    execError = 0;
    int status = 0;
    ASSERT_EQ(waitpid(other, &status, WNOHANG), other);
    EXPECT_EQ(WEXITSTATUS(status), 42);
}

} // namespace
