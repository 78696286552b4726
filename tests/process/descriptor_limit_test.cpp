// At the open-file limit: nothing of the caller's reaches the child, and a run that cannot
// get its descriptors does not happen (127, EMFILE, no observer call). A program of its own:
// the sanitizers' and valgrind's runtimes need descriptors of their own at the limit, so
// neither runs it (its labels say so).
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "collector.h"
#include "support/forked.h"
#include "support/open_files.h"

namespace {

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
