#include "history/json.h"

std::size_t utf8Length(const unsigned char* s, std::size_t len) {
    const unsigned char c = s[0];
    std::size_t n = 0;
    unsigned char low = 0x80; // the range the second byte must be in
    unsigned char high = 0xbf;
    if (c >= 0xc2 && c <= 0xdf) {
        n = 2;
    } else if (c >= 0xe0 && c <= 0xef) {
        n = 3;
        low = c == 0xe0 ? 0xa0 : 0x80;
        high = c == 0xed ? 0x9f : 0xbf;
    } else if (c >= 0xf0 && c <= 0xf4) {
        n = 4;
        low = c == 0xf0 ? 0x90 : 0x80;
        high = c == 0xf4 ? 0x8f : 0xbf;
    } else {
        return 0;
    }
    if (len < n || s[1] < low || s[1] > high) {
        return 0;
    }
    for (std::size_t i = 2; i < n; ++i) {
        if ((s[i] & 0xc0) != 0x80) {
            return 0;
        }
    }
    return n;
}

void appendJsonString(std::string& out, const char* s, std::size_t len) {
    static const char hex[] = "0123456789abcdef";
    out += '"';
    std::size_t plain = 0; // start of the run of characters that need no escape
    for (std::size_t i = 0; i < len; ++i) {
        const unsigned char c = static_cast<unsigned char>(s[i]);
        if (c >= 0x80) {
            const std::size_t n =
                utf8Length(reinterpret_cast<const unsigned char*>(s) + i, len - i);
            if (n != 0) {
                i += n - 1;
                continue;
            }
            out.append(s + plain, i - plain);
            plain = i + 1;
            out += "\xef\xbf\xbd"; // U+FFFD, the replacement character, for this byte
            continue;
        }
        if (c >= 0x20 && c != '"' && c != '\\' && c != 0x7f) {
            continue;
        }
        out.append(s + plain, i - plain);
        plain = i + 1;
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            out += "\\u00";
            out += hex[c >> 4];
            out += hex[c & 0xf];
        }
    }
    out.append(s + plain, len - plain);
    out += '"';
}

std::string jsonString(const char* s, std::size_t len) {
    std::string out;
    appendJsonString(out, s, len);
    return out;
}
