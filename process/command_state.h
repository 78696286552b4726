// What a VelcanCommand holds between its setters and Run(), and the steps every system's Run()
// shares. Internal.
#ifndef VELCAN_PROCESS_COMMAND_STATE_H
#define VELCAN_PROCESS_COMMAND_STATE_H

#include <cstddef>
#include <string>
#include <vector>

#include "velcan/process/command.h"

struct VelcanCommandState {
    enum class Input { NullDevice, Bytes, File, Inherited };

    // Exactly one of the two forms is set; neither while no command was given.
    std::vector<std::string> arguments;
    bool haveArguments = false;
    std::string line;
    bool haveLine = false;

    std::string folder;
    bool haveFolder = false;
    // In the order given; a later entry for a name wins. valueSet false removes the name.
    struct Change {
        std::string name;
        std::string value;
        bool valueSet;
    };
    std::vector<Change> environment;

    double timeLimit = 0;
    double gracePeriod = 1;
    VelcanCancel* cancel = nullptr;

    Input input = Input::NullDevice;
    const char* inputBytes = nullptr;
    std::size_t inputSize = 0;
    std::string inputFile;

    IBlockingProcessObserver* output = nullptr;
    IBlockingProcessObserver* errors = nullptr;
    bool endOthersWithChild = false;
};

// The cancel's handle, for the runs.
struct VelcanCancelAccess {
    static long long handle(const VelcanCancel& c) { return c.handle_; }
    static int error(const VelcanCancel& c) { return c.error_; }
};

namespace velcan {

// A result that says the command was not run.
VelcanRunResult notRun(VelcanRunEnd end, int error, long systemError);

// Whether the run may start: false, with the result to give, when its cancel could not be made
// (SetupFailed) or has been triggered already (Cancelled).
bool cancelAllowsStart(const VelcanCommandState& command, VelcanRunResult* notStarted);

// Refuses what no system can run: no command, a line LaunchBlockingProcess would refuse, a
// variable name that is empty or holds '='. Returns 0 or the errno value (EINVAL, E2BIG,
// ENOENT); on POSIX systems fills *argv with the words to run.
int checkCommand(const VelcanCommandState& command, std::vector<std::string>* argv);

// The child's environment, "NAME=VALUE" entries: `inherited` (the caller's, in its order) with
// the command's changes applied. foldCase compares names without regard to ASCII letter case.
std::vector<std::string> childEnvironment(const std::vector<std::string>& inherited,
                                          const std::vector<VelcanCommandState::Change>& changes,
                                          bool foldCase);

// A time in seconds as whole milliseconds, rounded up (at least 1 for any positive time); 0 for
// none, a negative time or NaN; at most about 290 million years.
long long millisecondsOf(double seconds);

} // namespace velcan

#endif
