// Programs that are found but cannot be started, whenever that shows (before the child
// exists or when it tries to run the program): 127, the reason in errno, no observer call.
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

// An executable script with the given first line.
struct Script {
    explicit Script(const std::string& content) : file(content) { chmod(file.path(), 0700); }
    std::string path() const { return file.path(); }
    TempFile file;
};

// A folder of its own, removed with what is in it.
struct TempDir {
    TempDir() {
        char name[] = "/tmp/velcan-dir-XXXXXX";
        path = mkdtemp(name);
    }
    ~TempDir() { std::system(("rm -rf '" + path + "'").c_str()); }
    std::string path;
};

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

TEST(StartFailure, ProgramThatIsASymbolicLinkLoopGives127WithTooManyLinks) {
    TempDir dir;
    ASSERT_EQ(symlink((dir.path + "/b").c_str(), (dir.path + "/a").c_str()), 0);
    ASSERT_EQ(symlink((dir.path + "/a").c_str(), (dir.path + "/b").c_str()), 0);
    EXPECT_EQ(launchExpectingNoRun(dir.path + "/a"), notRunWith(ELOOP));
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

TEST(StartFailure, FileWithoutInterpreterLineThatIsNotABinaryRunsThroughTheShell) {
    Script script("echo \"ran by the shell $1\"\nexit 5\n");
    EXPECT_EQ(launch((script.path() + " too")), (Result{5, "ran by the shell too\n"}));
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

// The caller's descriptors 0, 1 and 2 for this test: input that a child must never read
// and output that a child must never write.
struct CallerStreams {
    int input[2];
    int output[2];
};

// What one run at a lowered open-file limit gave, for the report.
std::string describedRun(int extra, int code, int error, const Collector& out) {
    return "limit +" + std::to_string(extra) + ": code " + std::to_string(code) + ", errno " +
           std::to_string(error) + ", " + std::to_string(out.bufferCalls + out.pieces) +
           " observer calls, output '" + out.output + "'\n";
}

TEST(StartFailure, DescriptorLimitNeverGivesTheChildTheCallersStreams) {
    // A helper process whose standard input holds unread text and whose standard output and
    // error go to a pipe this test reads, runs the child at each open-file limit from one
    // above what it has open to ten above. Each run either is whole (input at its end at
    // once, output through the observer) or does not happen (127, EMFILE, no observer call).
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // The sanitizers' runtimes open descriptors of their own (UBSan probes memory through a
    // pipe), so at the limit they report their own failures.
    GTEST_SKIP() << "needs descriptors the sanitizer runtime takes";
#endif
    CallerStreams caller;
    ASSERT_EQ(pipe(caller.input), 0);
    ASSERT_EQ(pipe(caller.output), 0);
    ASSERT_EQ(write(caller.input[1], "caller's input\n", 15), 15);
    close(caller.input[1]);
    const std::string report = inForkedChild([&] {
        dup2(caller.input[0], 0);
        dup2(caller.output[1], 1);
        dup2(caller.output[1], 2);
        close(caller.input[0]);
        close(caller.output[0]);
        close(caller.output[1]);
        const std::string command = child("stdin out ran");
        const int base = openDescriptorCount();
        std::string wrong;
        bool lastWhole = false;
        for (int extra = 1; extra <= 10; ++extra) {
            struct rlimit limit;
            getrlimit(RLIMIT_NOFILE, &limit);
            limit.rlim_cur = static_cast<rlim_t>(base + extra);
            setrlimit(RLIMIT_NOFILE, &limit);
            Collector out(256);
            errno = 0;
            const int code = LaunchBlockingProcess(command.c_str(), &out);
            const int error = errno;
            limit.rlim_cur = limit.rlim_max;
            setrlimit(RLIMIT_NOFILE, &limit);
            const bool whole = code == 0 && out.output == "stdin: 0 bytes\nran";
            const bool refused =
                code == 127 && (error == EMFILE || error == ENFILE) && out.bufferCalls == 0;
            // Up to three above the base there is no room for the runner's own four (the
            // pipe's two ends, the null device, the start counter); above, each run either
            // works whole or is refused, depending on whether the child's copies fit too.
            if (extra <= 3 ? !refused : !(whole || refused)) {
                wrong += describedRun(extra, code, error, out);
            }
            lastWhole = whole;
        }
        if (!lastWhole) {
            wrong += "the run at the highest limit was not whole\n";
        }
        // The caller's input is still there, unread.
        char left[64] = {0};
        if (read(0, left, sizeof left) != 15) {
            wrong += "the caller's input was read\n";
        }
        return wrong;
    });
    close(caller.input[0]);
    close(caller.output[1]);
    std::string written;
    char piece[256];
    for (ssize_t n; (n = read(caller.output[0], piece, sizeof piece)) > 0;) {
        written.append(piece, static_cast<size_t>(n));
    }
    close(caller.output[0]);
    EXPECT_EQ(report, "");
    EXPECT_EQ(written, "");
}

// With every descriptor the limit allows in use, not even the pipe can be made.
TEST(StartFailure, NoDescriptorLeftForThePipeGives127WithTooManyFiles) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "needs descriptors the sanitizer runtime takes";
#endif
    const std::string report = inForkedChild([] {
        struct rlimit limit;
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = 64;
        setrlimit(RLIMIT_NOFILE, &limit);
        while (open("/dev/null", O_RDONLY) >= 0) {
        }
        Collector out;
        errno = 0;
        const int code = LaunchBlockingProcess("true", &out);
        return describedRun(0, code, errno, out);
    });
    Collector none;
    EXPECT_EQ(report, describedRun(0, 127, EMFILE, none));
}

} // namespace
