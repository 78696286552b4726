#include "process/windows_quoting.h"

namespace velcan {

namespace {

void appendQuoted(const std::string& word, std::string* line) {
    if (!word.empty() && word.find_first_of(" \t\n\v\"") == std::string::npos) {
        *line += word;
        return;
    }
    *line += '"';
    std::size_t backslashes = 0;
    for (char c : word) {
        if (c == '\\') {
            ++backslashes;
            continue;
        }
        // Backslashes are literal but before a quote, where they are doubled and the quote
        // escaped.
        line->append(c == '"' ? 2 * backslashes + 1 : backslashes, '\\');
        backslashes = 0;
        *line += c;
    }
    line->append(2 * backslashes, '\\'); // before the closing quote
    *line += '"';
}

} // namespace

std::string quoteForWindows(const std::vector<std::string>& arguments) {
    std::string line;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (i == 0) {
            const bool blank = arguments[0].find_first_of(" \t") != std::string::npos;
            line += blank || arguments[0].empty() ? '"' + arguments[0] + '"' : arguments[0];
        } else {
            line += ' ';
            appendQuoted(arguments[i], &line);
        }
    }
    return line;
}

bool isBatchFile(const std::string& path) {
    if (path.size() < 4 || path[path.size() - 4] != '.') {
        return false;
    }
    std::string extension;
    for (std::size_t i = path.size() - 3; i < path.size(); ++i) {
        const char c = path[i];
        extension += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return extension == "bat" || extension == "cmd";
}

bool lineForCmd(const std::string& batchFile, const std::vector<std::string>& arguments,
                std::string* line, std::size_t* refused) {
    *line = "\"";
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& word = i == 0 ? batchFile : arguments[i];
        if (word.find_first_of("\"%\r\n") != std::string::npos) {
            *refused = i;
            return false;
        }
        if (i > 0) {
            *line += ' ';
        }
        const bool quote =
            i == 0 || word.empty() || word.find_first_of(" \t&|<>^(),;=!") != std::string::npos;
        *line += quote ? '"' + word + '"' : word;
    }
    *line += '"';
    return true;
}

} // namespace velcan
