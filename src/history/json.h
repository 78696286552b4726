// Texts as JSON string literals, for the release notes and the tool.
#ifndef VELCAN_HISTORY_JSON_H
#define VELCAN_HISTORY_JSON_H

#include <cstddef>
#include <string>

// Appends s as a JSON string literal, quotes included: well-formed UTF-8 is kept as it is,
// control characters, quotes and backslashes are escaped, and each byte that is not part of
// well-formed UTF-8 becomes U+FFFD, so the result is always valid UTF-8.
void appendJsonString(std::string& out, const char* s, std::size_t len);
std::string jsonString(const char* s, std::size_t len);
inline std::string jsonString(const std::string& s) {
    return jsonString(s.data(), s.size());
}

#endif
