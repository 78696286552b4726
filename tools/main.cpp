// velcan: the library at work from the command line. This file only dispatches; each command
// parses its own arguments and prints its own output.
#include <cstdio>
#include <cstring>
#include <string>

#include <velcan/velcan.h>

#include "commands.h"
#include "report.h"

namespace {

const char kUsage[] =
    "usage: velcan history [FILE] [--json]   print a version-history file\n"
    "       velcan events FILE               print every XML event a reader receives\n"
    "       velcan run [--] COMMAND [ARG...] run a command, streaming its output\n"
    "       velcan lint [--json] FILE...     say what the history reader would drop, split or\n"
    "                                        refuse in each version-history file\n"
    "       velcan --help | --version\n"
    "\n"
    "history reads the sample history installed with the tool when FILE is not given.\n"
    "run takes each ARG literally (no shell) and exits with the command's status: 128 plus\n"
    "the signal number when a signal ended it, 127 when it could not be run.\n"
    "lint exits with 0 when the files are clean and 1 when it has findings.\n"
    "Exit status otherwise: 0 on success, 1 when a file cannot be read, 2 on a usage error.\n";

struct Command {
    const char* name;
    int (*run)(const Arguments&);
};

const Command kCommands[] = {{"history", historyCommand},
                             {"events", eventsCommand},
                             {"run", runCommand},
                             {"lint", lintCommand}};

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        return usageError("no command given");
    }
    const std::string name = argv[1];
    if (name == "--help" || name == "-h") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (name == "--version") {
        const XML_Expat_Version expat = XML_ExpatVersionInfo();
        std::printf("velcan %s (expat %d.%d.%d)\n", VELCAN_VERSION_STRING, expat.major, expat.minor,
                    expat.micro);
        return 0;
    }
    for (const Command& command : kCommands) {
        if (name == command.name) {
            return command.run(Arguments(argv + 2, argv + argc));
        }
    }
    return usageError("unknown command '" + name + "'");
}
