// Case-insensitive ASCII comparison with a name the reader knows.
#ifndef VELCAN_HISTORY_ASCII_H
#define VELCAN_HISTORY_ASCII_H

#include <cstddef>
#include <cstdint>
#include <cstring>

// ASCII's digits and letters, whatever the locale.
inline bool isAsciiDigit(char c) {
    return c >= '0' && c <= '9';
}
inline bool isAsciiLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
inline bool isAsciiLetterOrDigit(char c) {
    return isAsciiDigit(c) || isAsciiLetter(c);
}

// True when the length bytes at text equal letters (a lower-case ASCII word of that length)
// in any letter case. Each byte of text either is the letter or the letter's upper-case
// form: no other byte maps onto a lower-case letter by setting bit 5, so setting it in
// every byte, eight at a time, makes an exact test.
inline bool foldedEquals(const char* text, const char* letters, std::size_t length) {
    const std::uint64_t bit5 = 0x2020202020202020u;
    std::size_t i = 0;
    for (; i + 8 <= length; i += 8) {
        std::uint64_t a;
        std::uint64_t b;
        std::memcpy(&a, text + i, 8);
        std::memcpy(&b, letters + i, 8);
        if ((a | bit5) != b) {
            return false;
        }
    }
    for (; i < length; ++i) {
        if ((text[i] | 0x20) != letters[i]) {
            return false;
        }
    }
    return true;
}

// True when the NUL-terminated text equals letters (a lower-case ASCII word) in any case.
template <std::size_t N>
inline bool equalsIgnoringCase(const char* text, const char (&letters)[N]) {
    return std::strlen(text) == N - 1 && foldedEquals(text, letters, N - 1);
}

#endif
