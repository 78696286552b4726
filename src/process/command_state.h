// What a VelcanCommand holds between its setters and Run(), and the checks that come before a
// run. Internal.
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

    std::string directory;
    bool haveDirectory = false;
    // In the order given; a later entry for a name wins. valueSet false removes the name.
    struct Change {
        std::string name;
        std::string value;
        bool valueSet;
    };
    std::vector<Change> environment;
    // Start from an empty environment, not the caller's.
    bool clearEnvironment = false;

    double timeLimit = 0;
    double gracePeriod = 1;
    VelcanCancel* cancel = nullptr;

    Input input = Input::NullDevice;
    const char* inputBytes = nullptr;
    std::size_t inputSize = 0;
    std::string inputFile;

    IBlockingProcessObserver* output = nullptr;
    IBlockingProcessObserver* errors = nullptr;
    bool inheritOutput = false;
    bool inheritErrors = false;
    // The bytes handed to each observer at most, and whether passing it ends the run.
    std::size_t outputLimit = static_cast<std::size_t>(-1);
    std::size_t errorLimit = static_cast<std::size_t>(-1);
    bool endAtOutputLimit = false;
    bool endAtErrorLimit = false;
    // The signal that ends a run's processes first (POSIX); 0: SIGTERM.
    int endSignal = 0;
    bool endOthersWithChild = false;
};

namespace velcan {

// A result that says the command was not run.
VelcanRunResult notRun(VelcanRunEnd end, int error, long systemError);

// Refuses what no system can run: no command, a line LaunchBlockingProcess would refuse, a
// variable name that is empty or holds '=', a time limit or grace period that is negative or no
// number. Returns 0 or the errno value (EINVAL, E2BIG, ENOENT), and fills *argv with the words.
int checkCommand(const VelcanCommandState& command, std::vector<std::string>* argv);

// The child's environment, "NAME=VALUE" entries: `inherited` (the caller's, in its order) with
// the command's changes applied. foldCase compares names without regard to ASCII letter case.
std::vector<std::string> childEnvironment(const std::vector<std::string>& inherited,
                                          const std::vector<VelcanCommandState::Change>& changes,
                                          bool foldCase);

// A time in seconds as whole milliseconds, rounded up (at least 1 for any positive time), or
// kForever for one longer than a 64-bit count of milliseconds holds (infinity among them).
const long long kForever = -1;
long long millisecondsOf(double seconds);

} // namespace velcan

#endif
