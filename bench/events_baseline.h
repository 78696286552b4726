// The floor for `velcan events`: a plain expat program that prints the same lines for the
// events a version history brings (start, end and character data), with unlocked stdio.
#ifndef VELCAN_BENCH_EVENTS_BASELINE_H
#define VELCAN_BENCH_EVENTS_BASELINE_H

#include <cstdio>
#include <cstring>

#include <expat.h>

namespace baseline {

inline void put(const char* s, size_t n) {
    fwrite_unlocked(s, 1, n, stdout);
}

inline void putJson(const char* s, size_t n) {
    static const char hex[] = "0123456789abcdef";
    putc_unlocked('"', stdout);
    for (size_t i = 0; i < n; ++i) {
        const unsigned char c = static_cast<unsigned char>(s[i]);
        switch (c) {
        case '"':
            put("\\\"", 2);
            break;
        case '\\':
            put("\\\\", 2);
            break;
        case '\b':
            put("\\b", 2);
            break;
        case '\f':
            put("\\f", 2);
            break;
        case '\n':
            put("\\n", 2);
            break;
        case '\r':
            put("\\r", 2);
            break;
        case '\t':
            put("\\t", 2);
            break;
        default:
            if (c < 0x20 || c == 0x7f) {
                const char u[6] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 0xf]};
                put(u, 6);
            } else {
                putc_unlocked(static_cast<char>(c), stdout);
            }
        }
    }
    putc_unlocked('"', stdout);
}

inline void XMLCALL start(void*, const char* name, const char** atts) {
    put("start ", 6);
    put(name, std::strlen(name));
    for (const char** a = atts; a[0] != nullptr; a += 2) {
        putc_unlocked(' ', stdout);
        put(a[0], std::strlen(a[0]));
        putc_unlocked('=', stdout);
        putJson(a[1], std::strlen(a[1]));
    }
    putc_unlocked('\n', stdout);
}

inline void XMLCALL end(void*, const char* name) {
    put("end ", 4);
    put(name, std::strlen(name));
    putc_unlocked('\n', stdout);
}

inline void XMLCALL chars(void*, const char* s, int len) {
    put("chars ", 6);
    putJson(s, static_cast<size_t>(len));
    putc_unlocked('\n', stdout);
}

inline void XMLCALL other(void*, const char* s, int len) {
    put("default ", 8);
    putJson(s, static_cast<size_t>(len));
    putc_unlocked('\n', stdout);
}

// Prints the events of the file, read in 1024-byte pieces as the tool reads it.
inline bool printEvents(const char* path) {
    FILE* file = std::fopen(path, "r");
    if (file == nullptr) {
        return false;
    }
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetElementHandler(parser, start, end);
    XML_SetCharacterDataHandler(parser, chars);
    XML_SetDefaultHandler(parser, other);
    char buffer[1024];
    bool ok = true;
    for (;;) {
        const size_t n = std::fread(buffer, 1, sizeof buffer, file);
        const int isFinal = n < sizeof buffer ? 1 : 0;
        if (XML_Parse(parser, buffer, static_cast<int>(n), isFinal) == 0) {
            ok = false;
            break;
        }
        if (isFinal != 0) {
            break;
        }
    }
    std::printf("status ok\n");
    XML_ParserFree(parser);
    std::fclose(file);
    std::fflush(stdout);
    return ok;
}

} // namespace baseline

#endif
