// Texts as JSON string literals, for the release notes and the tool.
#ifndef VELCAN_HISTORY_JSON_H
#define VELCAN_HISTORY_JSON_H

#include <cstddef>
#include <string>

// Appends s as a JSON string literal, quotes included: well-formed UTF-8 is kept as it is,
// control characters, quotes and backslashes are escaped, and each byte that is not part of
// well-formed UTF-8 becomes U+FFFD, so the result is always valid UTF-8.
// The length of the well-formed UTF-8 sequence at s[0..len), or 0 when it is not one. Not
// one: a stray continuation byte, an overlong form, a surrogate, a code point above U+10FFFF
// or a sequence cut short.
std::size_t utf8Length(const unsigned char* s, std::size_t len);

void appendJsonString(std::string& out, const char* s, std::size_t len);
std::string jsonString(const char* s, std::size_t len);
inline std::string jsonString(const std::string& s) {
    return jsonString(s.data(), s.size());
}

#endif
