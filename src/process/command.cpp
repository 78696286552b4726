// VelcanCommand's setters and the steps of a run that no system changes.
#include "velcan/process/command.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>

#include "process/command_line.h"
#include "process/command_state.h"

VelcanCommand::VelcanCommand() : state_(new VelcanCommandState) {}

VelcanCommand::~VelcanCommand() {
    delete state_;
}

void VelcanCommand::SetArguments(const char* const* arguments) {
    state_->arguments.clear();
    for (const char* const* a = arguments; a != nullptr && *a != nullptr; ++a) {
        state_->arguments.emplace_back(*a);
    }
    state_->haveArguments = true;
    state_->haveLine = false;
}

void VelcanCommand::SetCommandLine(const char* commandLine) {
    state_->line = commandLine != nullptr ? commandLine : "";
    state_->haveLine = commandLine != nullptr;
    state_->haveArguments = false;
}

void VelcanCommand::SetWorkingDirectory(const char* directory) {
    state_->haveDirectory = directory != nullptr;
    state_->directory = directory != nullptr ? directory : "";
}

void VelcanCommand::SetEnvironment(const char* name, const char* value) {
    state_->environment.push_back(
        {name != nullptr ? name : "", value != nullptr ? value : "", true});
}

void VelcanCommand::UnsetEnvironment(const char* name) {
    state_->environment.push_back({name != nullptr ? name : "", "", false});
}

void VelcanCommand::ClearEnvironment() {
    state_->clearEnvironment = true;
}

void VelcanCommand::SetEndSignal(int signal) {
    state_->endSignal = signal;
}

void VelcanCommand::SetOutputLimit(std::size_t bytes, bool endRun) {
    state_->outputLimit = bytes;
    state_->endAtOutputLimit = endRun;
}

void VelcanCommand::SetErrorLimit(std::size_t bytes, bool endRun) {
    state_->errorLimit = bytes;
    state_->endAtErrorLimit = endRun;
}

void VelcanCommand::InheritOutput() {
    state_->inheritOutput = true;
    state_->output = nullptr;
}

void VelcanCommand::InheritError() {
    state_->inheritErrors = true;
    state_->errors = nullptr;
}

void VelcanCommand::SetTimeLimit(double seconds) {
    state_->timeLimit = seconds;
}

void VelcanCommand::SetGracePeriod(double seconds) {
    state_->gracePeriod = seconds;
}

void VelcanCommand::SetCancel(VelcanCancel* cancel) {
    state_->cancel = cancel;
}

void VelcanCommand::SetInput(const void* bytes, std::size_t size) {
    state_->input = VelcanCommandState::Input::Bytes;
    state_->inputBytes = static_cast<const char*>(bytes);
    state_->inputSize = bytes != nullptr ? size : 0;
}

void VelcanCommand::SetInputFile(const char* path) {
    state_->input =
        path != nullptr ? VelcanCommandState::Input::File : VelcanCommandState::Input::NullDevice;
    state_->inputFile = path != nullptr ? path : "";
}

void VelcanCommand::InheritInput() {
    state_->input = VelcanCommandState::Input::Inherited;
}

void VelcanCommand::SetOutputObserver(IBlockingProcessObserver* observer) {
    state_->output = observer;
    state_->inheritOutput = false;
}

void VelcanCommand::SetErrorObserver(IBlockingProcessObserver* observer) {
    state_->errors = observer;
    state_->inheritErrors = false;
}

void VelcanCommand::SetEndOthersWithChild(bool end) {
    state_->endOthersWithChild = end;
}

namespace velcan {

VelcanRunResult notRun(VelcanRunEnd end, int error, long systemError) {
    VelcanRunResult result;
    result.end = end;
    result.code = 0;
    result.error = error;
    result.systemError = systemError;
    return result;
}

namespace {

bool sameName(const std::string& a, const char* b, std::size_t bLength, bool foldCase) {
    if (a.size() != bLength) {
        return false;
    }
    for (std::size_t i = 0; i < bLength; ++i) {
        const unsigned char x = static_cast<unsigned char>(a[i]);
        const unsigned char y = static_cast<unsigned char>(b[i]);
        if (x != y && !(foldCase && std::tolower(x) == std::tolower(y) && x < 128)) {
            return false;
        }
    }
    return true;
}

} // namespace

int checkCommand(const VelcanCommandState& command, std::vector<std::string>* argv) {
    // A comparison NaN fails: no number is refused with the negative times.
    if (!(command.timeLimit >= 0) || !(command.gracePeriod >= 0) || command.endSignal < 0 ||
        command.endSignal > 64) {
        return EINVAL;
    }
    for (const VelcanCommandState::Change& change : command.environment) {
        if (change.name.empty() || change.name.find('=') != std::string::npos) {
            return EINVAL;
        }
    }
    if (command.haveLine) {
        CommandLine parsed;
        if (int refusal = parseCommandLine(command.line.c_str(), &parsed)) {
            return refusal;
        }
        argv->assign(parsed.arguments, parsed.arguments + parsed.argumentCount);
        return 0;
    }
    if (!command.haveArguments || command.arguments.empty() || command.arguments[0].empty()) {
        return EINVAL;
    }
    *argv = command.arguments;
    return 0;
}

std::vector<std::string> childEnvironment(const std::vector<std::string>& inherited,
                                          const std::vector<VelcanCommandState::Change>& changes,
                                          bool foldCase) {
    std::vector<std::string> result = inherited;
    // Each change in the order given: a name there is given its new value in its place, or
    // removed; a new name goes at the end.
    for (const VelcanCommandState::Change& change : changes) {
        auto entry = result.begin();
        for (; entry != result.end(); ++entry) {
            // Windows keeps per-drive directories as "=C:=C:\\...": a name cannot be empty, so
            // the '=' looked for is the first after the first character.
            const std::size_t equals = entry->find('=', entry->empty() ? 0 : 1);
            if (sameName(change.name, entry->data(),
                         equals == std::string::npos ? entry->size() : equals, foldCase)) {
                break;
            }
        }
        if (!change.valueSet) {
            if (entry != result.end()) {
                result.erase(entry);
            }
        } else if (entry != result.end()) {
            *entry = entry->substr(0, change.name.size()) + "=" + change.value;
        } else {
            result.push_back(change.name + "=" + change.value);
        }
    }
    return result;
}

long long millisecondsOf(double seconds) {
    if (!(seconds > 0)) {
        return 0;
    }
    const double ms = std::ceil(seconds * 1000.0);
    // 2^63 is exactly a double; anything from there on is more than the count holds.
    return ms >= 9223372036854775808.0 ? kForever : static_cast<long long>(ms);
}

} // namespace velcan
