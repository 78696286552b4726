#include "run_line.h"

#include <cerrno>
#include <cstring>

#include "history/ascii.h"
#include "process/command_line.h"

namespace {

// One argument in the form the runner's splitting gives back as it is: "%" doubled; bare
// when it has no space or quote; otherwise between the one kind of quote it does not hold.
std::string quoted(const char* arg) {
    std::string word;
    for (const char* c = arg; *c != '\0'; ++c) {
        word += *c == '%' ? "%%" : std::string(1, *c);
    }
    if (!word.empty() && word.find_first_of(" \"'") == std::string::npos) {
        return word;
    }
    if (word.find('"') == std::string::npos) {
        return '"' + word + '"';
    }
    if (word.find('\'') == std::string::npos) {
        return '\'' + word + '\'';
    }
    return word; // holds both kinds of quote: the check below decides
}

} // namespace

std::string batchFileArgumentProblem(const std::vector<const char*>& args) {
    const char* dot = args.empty() ? nullptr : std::strrchr(args[0], '.');
    if (dot == nullptr ||
        !(equalsIgnoringCase(dot + 1, "bat") || equalsIgnoringCase(dot + 1, "cmd"))) {
        return "";
    }
    for (std::size_t i = 1; i < args.size(); ++i) {
        const char* special = std::strpbrk(args[i], "%^&|<>()!\"\r\n");
        if (special != nullptr) {
            return "argument " + std::to_string(i + 1) + " ('" + args[i] +
                   "') cannot be passed safely to a batch file: cmd would read its '" +
                   std::string(1, *special) + "'";
        }
    }
    return "";
}

std::string argumentsAsTyped(const std::vector<const char*>& args) {
    std::string shown;
    for (const char* arg : args) {
        std::string word = arg;
        if (word.empty() || word.find_first_of(" \t\n\"'\\$`&|;<>()*?[]#~!") != std::string::npos) {
            std::string escaped = "'";
            for (char c : word) {
                escaped += c == '\'' ? std::string("'\\''") : std::string(1, c);
            }
            word = escaped + "'";
        }
        shown += shown.empty() ? word : " " + word;
    }
    return shown;
}

bool commandLineFromArguments(const std::vector<const char*>& args, std::string* line,
                              std::string* problem) {
    line->clear();
    for (const char* arg : args) {
        *line += line->empty() ? quoted(arg) : " " + quoted(arg);
    }
    // Taken only if the runner's own splitting gives back every argument exactly.
    velcan::CommandLine parsed;
    const int refusal = velcan::parseCommandLine(line->c_str(), &parsed);
    if (refusal == E2BIG) {
        // Refused before anything starts, naming the limit the line is over.
        *problem = static_cast<int>(line->size()) > velcan::kMaxCommandLineLength
                       ? "the command line is " + std::to_string(line->size()) +
                             " characters long; the runner takes at most " +
                             std::to_string(velcan::kMaxCommandLineLength)
                       : "the command has " + std::to_string(args.size()) +
                             " words; the runner takes at most " +
                             std::to_string(velcan::kMaxArguments);
        return false;
    }
    const int count = refusal == 0 ? parsed.argumentCount : 0;
    for (size_t i = 0; i < args.size(); ++i) {
        if (static_cast<int>(i) >= count || std::strcmp(parsed.arguments[i], args[i]) != 0) {
            *problem = "argument " + std::to_string(i + 1) + " ('" + args[i] +
                       "') cannot be passed as it is: the command line has no form for it";
            return false;
        }
    }
    if (count != static_cast<int>(args.size())) {
        *problem = "the arguments cannot be passed as they are";
        return false;
    }
    return true;
}
