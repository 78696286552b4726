// velcan: the library at work from the command line.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <velcan/velcan.h>

#include "commands.h"
#include "lint.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <unistd.h>
#endif

#ifndef VELCAN_SAMPLE_FILE
#define VELCAN_SAMPLE_FILE "examples/version-history.xml"
#endif
#ifndef VELCAN_SAMPLE_RELATIVE
#define VELCAN_SAMPLE_RELATIVE "../share/velcan/version-history.xml"
#endif

namespace {

const char kUsage[] =
    "usage: velcan history [FILE] [--json]   print a version-history file\n"
    "       velcan events FILE               print every XML event a reader receives\n"
    "       velcan run [--] COMMAND [ARG...]    run a command, streaming its output\n"
    "       velcan lint [--json] FILE...     say what the history reader would drop, split or\n"
    "                                        refuse in each version-history file\n"
    "       velcan --help | --version\n"
    "\n"
    "history reads the sample history installed with the tool when FILE is not given.\n"
    "run takes each ARG literally (no shell) and exits with the command's status: 128 plus\n"
    "the signal number when a signal ended it, 127 when it could not be run.\n"
    "lint exits with 0 when the files are clean and 1 when it has findings.\n"
    "Exit status otherwise: 0 on success, 1 when a file cannot be read, 2 on a usage error.\n";

// The sample history: the one installed with the tool (share/velcan beside its bin), else
// the source tree's, for the tool as built.
std::string sampleFile() {
    std::string self;
#if defined(_WIN32)
    char path[MAX_PATH + 1];
    const DWORD n = GetModuleFileNameA(nullptr, path, sizeof path);
    self.assign(path, n < sizeof path ? n : 0);
#else
    char path[4096];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path);
    self.assign(path, n > 0 ? static_cast<size_t>(n) : 0);
#endif
    const size_t slash = self.find_last_of("/\\");
    if (slash != std::string::npos) {
        std::string installed = self.substr(0, slash + 1) + VELCAN_SAMPLE_RELATIVE;
        if (FILE* file = std::fopen(installed.c_str(), "r")) {
            std::fclose(file);
            return installed;
        }
    }
    return VELCAN_SAMPLE_FILE;
}

int usageError(const std::string& message) {
    reportError(message + " (try 'velcan --help')");
    return kExitUsage;
}

bool isOption(const char* arg) {
    return arg[0] == '-' && arg[1] != '\0';
}

int history(const std::vector<const char*>& args) {
    const char* path = nullptr;
    bool json = false;
    for (const char* arg : args) {
        if (std::strcmp(arg, "--json") == 0) {
            json = true;
        } else if (isOption(arg)) {
            return usageError(std::string("history: unknown option '") + arg + "'");
        } else if (path == nullptr) {
            path = arg;
        } else {
            return usageError("history: more than one FILE given");
        }
    }
    return historyCommand(path != nullptr ? path : sampleFile().c_str(), json);
}

int events(const std::vector<const char*>& args) {
    if (args.size() != 1 || isOption(args[0])) {
        return usageError("events: expects exactly one FILE");
    }
    return eventsCommand(args[0]);
}

int run(std::vector<const char*> args) {
    if (!args.empty() && std::strcmp(args[0], "--") == 0) {
        args.erase(args.begin());
    } else if (!args.empty() && isOption(args[0])) {
        return usageError(std::string("run: unknown option '") + args[0] + "'");
    }
    if (args.empty()) {
        return usageError("run: expects a COMMAND");
    }
    std::string line;
    std::string problem;
    if (!commandLineFromArguments(args, &line, &problem)) {
        return usageError("run: " + problem);
    }
    return runCommand(line);
}

int lint(const std::vector<const char*>& args) {
    bool json = false;
    std::vector<std::string> files;
    for (const char* arg : args) {
        if (std::strcmp(arg, "--json") == 0) {
            json = true;
        } else if (isOption(arg)) {
            return usageError(std::string("lint: unknown option '") + arg + "'");
        } else {
            files.emplace_back(arg);
        }
    }
    if (files.empty()) {
        return usageError("lint: expects at least one FILE");
    }
    std::vector<LintFinding> findings;
    for (const std::string& file : files) {
        const std::vector<LintFinding> some = lintHistoryFile(file);
        findings.insert(findings.end(), some.begin(), some.end());
    }
    if (json) {
        std::printf("%s\n", findingsAsJson(findings).c_str());
    } else {
        for (const LintFinding& finding : findings) {
            std::printf("%s\n", formatFinding(finding).c_str());
        }
    }
    return findings.empty() ? 0 : kExitFailure;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        return usageError("no command given");
    }
    const std::string command = argv[1];
    const std::vector<const char*> args(argv + 2, argv + argc);
    if (command == "--help" || command == "-h") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (command == "--version") {
        const XML_Expat_Version expat = XML_ExpatVersionInfo();
        std::printf("velcan %s (expat %d.%d.%d)\n", VELCAN_VERSION_STRING, expat.major, expat.minor,
                    expat.micro);
        return 0;
    }
    if (command == "history") {
        return history(args);
    }
    if (command == "events") {
        return events(args);
    }
    if (command == "run") {
        return run(args);
    }
    if (command == "lint") {
        return lint(args);
    }
    return usageError("unknown command '" + command + "'");
}
