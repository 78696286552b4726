// velcan: the library at work from the command line. This file only dispatches; each command
// parses its own arguments and prints its own output.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include <velcan/velcan.h>

#include "commands.h"
#include "report.h"

namespace {

struct Command {
    const char* name;
    const char* synopsis; // after "velcan NAME"
    const char* summary;  // the usage's one line, beside the synopsis
    const char* details;  // the command's own --help, after its usage line
    int (*run)(const Arguments&);
};

// The one description of the tool's usage: --help, each COMMAND --help, the manual page and
// docs/tool.md's usage block are all this text.
const Command kCommands[] = {
    {"history", "[--since=VERSION] [--format=FORMAT [--standalone]] [--] [FILE]",
     "print a version-history file, or what is new since a version",
     "--since=VERSION shows only the versions newer than VERSION, a version number such as\n"
     "4.1.0, v2.0-rc.10 or 2.1 (= 2.1.0). FORMAT: text (the default), json (as --json), markdown\n"
     "or html (a fragment; --standalone makes it a whole page). Descriptions' blanks and line\n"
     "breaks are folded into single spaces but in JSON, which keeps them as read. FILE is read\n"
     "once; '-' is standard input. Without FILE, the sample history installed with the tool\n"
     "(said on stderr when standard input is a pipe or a file, which it leaves unread).\n"
     "Exit status: 0, or 1 when the file cannot be read, is not well formed or has no versions.\n",
     historyCommand},
    {"events", "[--] FILE", "print every XML event a reader receives",
     "'-' is standard input. Exit status: 0, or 1 when the file cannot be read or is not well\n"
     "formed.\n",
     eventsCommand},
    {"run", "[OPTION...] [--] COMMAND [ARG...]", "run a command, streaming its output",
     "Takes each ARG literally (no shell). By default the command's output and error are\n"
     "copied to velcan's output, and its input is empty. Options, before COMMAND:\n"
     "  --inherit            give it velcan's own input, output and error, as timeout and\n"
     "                       env do (a terminal stays a terminal; nothing is copied)\n"
     "  --timeout=DURATION   end the command and all it started after DURATION: seconds\n"
     "                       (10, 0.5), or with s, m, h or d (1.5m); 0 or inf: no limit\n"
     "  -s, --signal=SIGNAL  the signal that ends them first (TERM by default; INT, 9, ...)\n"
     "  -k, --kill-after=DURATION\n"
     "                       then KILL what is left after DURATION (1 s by default)\n"
     "  --preserve-status    when the time limit ended it, exit as the command did\n"
     "  -C, --cwd=DIR        run it in DIR\n"
     "  --env=NAME=VALUE     set a variable (repeatable)\n"
     "  -u, --unset-env=NAME remove a variable (repeatable)\n"
     "  -i, --ignore-environment\n"
     "                       start from an empty environment\n"
     "  --input=FILE         its standard input ('-': velcan's own)\n"
     "Exit status: the command's own; 124 when the time limit ended it, 125 when velcan\n"
     "itself failed (usage included), 126 when COMMAND was found but cannot be run, 127 when\n"
     "it was not found, 128 plus N when signal N ended it. TERM, INT, HUP, QUIT, USR1, USR2\n"
     "or ALRM sent to velcan, or its output closed, end the command and all it started\n"
     "first; velcan then ends by that signal. TSTP (Ctrl+Z) stops the command's group with\n"
     "velcan, and CONT continues both.\n",
     runCommand},
    {"lint", "[--json] [--fail-on=error] [--] FILE...",
     "say what the history reader would drop or refuse",
     "Findings go to stdout as FILE:LINE:COLUMN: error|warning: MESSAGE, or with --json as one\n"
     "JSON object: its format version, the findings and the files it could not read (a file\n"
     "name's bytes that are not UTF-8 become U+FFFD). '-' is standard input. Exit status: 0\n"
     "when the files are clean, 1 when there are findings or a file cannot be read; with\n"
     "--fail-on=error, warnings alone give 0.\n",
     lintCommand},
    {"version", "compare A [OP] B | sort [--] [VERSION...]",
     "compare or sort version numbers as people read them",
     "compare A B prints <, = or >. compare A OP B, with OP lt, le, eq, ne, ge or gt (or <<,\n"
     "<=, =, !=, >=, >>), tells by its exit status, as dpkg --compare-versions does: 0 when A OP\n"
     "B holds, 1 when it does not. sort prints the VERSIONs, or standard input's lines when none\n"
     "are given, oldest first, one a line; equal versions keep their order. Texts that are no\n"
     "version numbers come first. The order is the library's (2.9 < 2.10 < 2.10.1, 1.0-rc9 <\n"
     "1.0-rc10 < 1.0). Exit status: 0, 1 (a relation that does not hold, or a failed read or\n"
     "write), or 2 on a usage error.\n",
     versionCommand},
};

std::string usageLine(const Command& c, bool first) {
    return std::string(first ? "usage: " : "       ") + "velcan " + c.name + " " + c.synopsis;
}

std::string usage() {
    std::string text;
    std::size_t width = 0;
    bool first = true;
    for (const Command& c : kCommands) {
        text += usageLine(c, first) + "\n";
        width = std::max(width, std::strlen(c.name));
        first = false;
    }
    text += "       velcan COMMAND --help | --help | --version\n\nCommands:\n";
    for (const Command& c : kCommands) {
        std::string name = c.name;
        name.resize(width + 2, ' ');
        text += "  " + name + c.summary + "\n";
    }
    text += "\n"
            "Exit status otherwise: 0 on success, 1 when a file cannot be read or written,\n"
            "2 on a usage error. 'velcan COMMAND --help' tells more of each.\n";
    return text;
}

bool asksForHelp(const Arguments& args) {
    return !args.empty() &&
           (std::strcmp(args[0], "--help") == 0 || std::strcmp(args[0], "-h") == 0);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs(usage().c_str(), stderr);
        return kExitUsage;
    }
    const std::string name = argv[1];
    if (name == "--help" || name == "-h") {
        return writeOut(usage()) ? 0 : kExitFailure;
    }
    if (name == "--version") {
        const XML_Expat_Version expat = XML_ExpatVersionInfo();
        return writeOut(std::string("velcan ") + VELCAN_VERSION_STRING + " (expat " +
                        std::to_string(expat.major) + "." + std::to_string(expat.minor) + "." +
                        std::to_string(expat.micro) + ")\n")
                   ? 0
                   : kExitFailure;
    }
    for (const Command& command : kCommands) {
        if (name == command.name) {
            const Arguments args(argv + 2, argv + argc);
            if (asksForHelp(args)) {
                return writeOut(usageLine(command, true) + "\n" + command.summary + ".\n" +
                                command.details)
                           ? 0
                           : kExitFailure;
            }
            return command.run(args);
        }
    }
    return usageError("unknown command '" + name + "'");
}
