// The velcan tool's commands. Each takes the arguments after its name, parses them, prints its
// own output and returns the process's exit status.
#ifndef VELCAN_TOOLS_COMMANDS_H
#define VELCAN_TOOLS_COMMANDS_H

#include <vector>

using Arguments = std::vector<const char*>;

// history [FILE] [--json]: the version history as VelcanParseUpdateFile returns it.
int historyCommand(const Arguments& args);

// events FILE: every event an expatpp reader receives, then the status.
int eventsCommand(const Arguments& args);

// run [--] COMMAND [ARG...]: the command through LaunchBlockingProcess, output streamed.
int runCommand(const Arguments& args);

// lint [--json] FILE...: what the history reader would drop, split or refuse.
int lintCommand(const Arguments& args);

// version compare A [OP] B | sort [VERSION...]: version numbers as the library orders them.
int versionCommand(const Arguments& args);

#endif
