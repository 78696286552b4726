#include "json.h"

void appendJsonString(std::string& out, const char* s, std::size_t len) {
    static const char hex[] = "0123456789abcdef";
    out += '"';
    std::size_t plain = 0; // start of the run of characters that need no escape
    for (std::size_t i = 0; i < len; ++i) {
        const unsigned char c = static_cast<unsigned char>(s[i]);
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
