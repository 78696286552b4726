// How an argument list becomes a Windows command line, for Microsoft's C runtime and for cmd.
// Pure text work, so it is built and tested on every system. Internal.
#ifndef VELCAN_PROCESS_WINDOWS_QUOTING_H
#define VELCAN_PROCESS_WINDOWS_QUOTING_H

#include <string>
#include <vector>

namespace velcan {

// The command line that Microsoft's C runtime (CommandLineToArgvW, the CRT's startup) splits
// back into exactly `arguments`: a word with no blank and no '"' stays bare; any other is put
// in double quotes, each '"' escaped with a backslash and the backslashes before a '"' or
// before the closing quote doubled. The program, first, is put in quotes when it holds a
// blank (the runtime reads the program's name up to the next quote, with no escapes).
std::string quoteForWindows(const std::vector<std::string>& arguments);

// Whether a path names a batch file (ending in .bat or .cmd, in any letter case), which
// CreateProcess hands to cmd.
bool isBatchFile(const std::string& path);

// The line cmd /s /c is to run for a batch file and its arguments: the batch file's path and
// each argument in double quotes when it is empty or holds a blank or a character cmd acts on
// outside quotes (& | < > ^ ( ) , ; = !), the whole in one more pair of quotes, which /s
// strips. Within quotes cmd still acts on '"' (ending them), '%' (expanding a variable) and a
// line break (ending the command), and none of them can be escaped there: false, with
// *refused set to the index of the first argument holding one (0 for the path), when one
// does; nothing is run then.
bool lineForCmd(const std::string& batchFile, const std::vector<std::string>& arguments,
                std::string* line, std::size_t* refused);

} // namespace velcan

#endif
