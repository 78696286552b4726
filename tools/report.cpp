#include "report.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

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

namespace {

// Whether the bytes at p (n of them) start with one that cannot begin well-formed UTF-8 there:
// a byte above 0x7F that is no lead byte, or a lead byte without its continuation bytes.
bool startsWithNonUtf8(const unsigned char* p, int n) {
    if (n <= 0 || p[0] < 0x80) {
        return false;
    }
    const int length = p[0] >= 0xC2 && p[0] <= 0xDF   ? 2
                       : p[0] >= 0xE0 && p[0] <= 0xEF ? 3
                       : p[0] >= 0xF0 && p[0] <= 0xF4 ? 4
                                                      : 0;
    if (length == 0 || n < length) {
        return length == 0;
    }
    for (int i = 1; i < length; ++i) {
        if ((p[i] & 0xC0) != 0x80) {
            return true;
        }
    }
    return false;
}

} // namespace

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
        if (context != nullptr && offset >= 0 && offset < size &&
            startsWithNonUtf8(reinterpret_cast<const unsigned char*>(context) + offset,
                              size - offset)) {
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
