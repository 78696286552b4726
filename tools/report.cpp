#include "report.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "history/json.h"

void reportError(const std::string& message) {
    std::fprintf(stderr, "velcan: %s\n", message.c_str());
}

std::string location(const std::string& file, int line, int column) {
    return file + ":" + std::to_string(line) + ":" + std::to_string(column);
}

int columnOf(expatpp& reader) {
    return static_cast<int>(
               ::XML_GetCurrentColumnNumber(static_cast<XML_Parser>(static_cast<void*>(reader)))) +
           1;
}

std::string locationOf(const std::string& file, expatpp& reader) {
    return location(file, reader.XML_GetCurrentLineNumber(), columnOf(reader));
}

int usageError(const std::string& message) {
    reportError(message + " (try 'velcan --help')");
    return kExitUsage;
}

std::string xmlErrorMessage(expatpp& reader) {
    const XML_Error code = reader.XML_GetErrorCode();
    std::string message = XML_ErrorString(code);
    if (code == XML_ERROR_UNKNOWN_ENCODING) {
        message += " (the reader reads UTF-8, UTF-16, ISO-8859-1 and US-ASCII; save the file "
                   "as UTF-8)";
    } else if (code == XML_ERROR_INVALID_TOKEN) {
        // Bytes that are not UTF-8 where the document is read as UTF-8: say so.
        int offset = 0;
        int size = 0;
        const char* context = XML_GetInputContext(
            static_cast<XML_Parser>(static_cast<void*>(reader)), &offset, &size);
        const unsigned char* at = reinterpret_cast<const unsigned char*>(context) + offset;
        if (context != nullptr && offset >= 0 && offset < size && *at >= 0x80 &&
            utf8Length(at, static_cast<std::size_t>(size - offset)) == 0) {
            message += " (bytes that are not UTF-8: save the file as UTF-8, or declare its "
                       "encoding, such as encoding=\"ISO-8859-1\")";
        }
    }
    return message;
}

bool isOption(const char* arg) {
    return arg[0] == '-' && arg[1] != '\0';
}

bool splitArguments(const char* command, const std::vector<const char*>& args,
                    const std::vector<std::string>& known, std::vector<std::string>* options,
                    std::vector<const char*>* operands, int* status) {
    bool ended = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const char* arg = args[i];
        if (!ended && std::strcmp(arg, "--") == 0) {
            ended = true;
        } else if (!ended && isOption(arg)) {
            const std::string given = arg;
            std::string option;
            for (const std::string& k : known) {
                const bool takesValue = !k.empty() && k.back() == '=';
                if (given == k || (takesValue && given.compare(0, k.size(), k) == 0)) {
                    option = given;
                } else if (takesValue && given == k.substr(0, k.size() - 1)) {
                    if (i + 1 == args.size()) {
                        *status = usageError(std::string(command) + ": " + given +
                                             " needs a value (" + k + "VALUE)");
                        return false;
                    }
                    option = k + args[++i];
                }
                if (!option.empty()) {
                    break;
                }
            }
            if (option.empty()) {
                *status = usageError(std::string(command) + ": unknown option '" + arg + "'");
                return false;
            }
            options->push_back(option);
        } else {
            operands->push_back(arg);
        }
    }
    return true;
}

bool finishOutput() {
    // The stream's error flag keeps a failure of any earlier write, its errno that failure's.
    if (std::fflush(stdout) == 0 && !std::ferror(stdout)) {
        return true;
    }
    reportError(std::string("cannot write the output: ") +
                (errno != 0 ? std::strerror(errno) : "write error"));
    return false;
}

bool writeOut(const std::string& text) {
    errno = 0;
    std::fwrite(text.data(), 1, text.size(), stdout);
    return finishOutput();
}
