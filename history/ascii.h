// Case-insensitive ASCII comparison with a name the reader knows.
#ifndef VELCAN_HISTORY_ASCII_H
#define VELCAN_HISTORY_ASCII_H

// True when text equals letters (a lower-case ASCII word) in any letter case. Each byte of
// text either is the letter or the letter's upper-case form; no other byte maps onto a
// lower-case letter by setting bit 5, so the test is exact and stops at the first mismatch.
inline bool equalsIgnoringCase(const char* text, const char* letters) {
    for (; *letters != '\0'; ++text, ++letters) {
        if ((*text | 0x20) != *letters) {
            return false;
        }
    }
    return *text == '\0';
}

#endif
