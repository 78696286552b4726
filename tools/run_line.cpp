#include "run_line.h"

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
