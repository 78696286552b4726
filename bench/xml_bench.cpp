// expatpp: a virtual call per event against expat's own C callbacks.
#include <cstdio>
#include <string>

#include <expat.h>
#include <velcan/velcan.h>

#include "generate_history.h"

#include "measure.h"

namespace bench {

struct Work {
    unsigned long sum = 0;
    void name(const char* s) {
        for (; *s != '\0'; ++s) {
            sum += static_cast<unsigned char>(*s);
        }
    }
    void text(const char* s, int len) {
        for (int i = 0; i < len; ++i) {
            sum += static_cast<unsigned char>(s[i]);
        }
    }
};

class WorkReader : public expatpp {
  public:
    Work work;
    void startElement(const char* name, const char**) override { work.name(name); }
    void endElement(const char* name) override { work.name(name); }
    void charData(const char* s, int len) override { work.text(s, len); }
};

void XMLCALL cStart(void* w, const char* name, const char**) {
    static_cast<Work*>(w)->name(name);
}
void XMLCALL cEnd(void* w, const char* name) {
    static_cast<Work*>(w)->name(name);
}
void XMLCALL cText(void* w, const char* s, int len) {
    static_cast<Work*>(w)->text(s, len);
}

void dispatchMeasure(bool quick) {
    const std::string path = "/tmp/velcan-bench-dispatch.xml";
    generateHistory(path, quick ? (1L << 20) : (20L << 20));
    std::string doc;
    {
        FILE* f = std::fopen(path.c_str(), "rb");
        char buffer[65536];
        size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) {
            doc.append(buffer, n);
        }
        std::fclose(f);
        std::remove(path.c_str());
    }
    unsigned long a = 0, b = 0;
    const Pair t = interleaved(
        quick ? 3 : 9,
        [&] {
            return seconds([&] {
                WorkReader r;
                r.XML_Parse(doc.data(), static_cast<int>(doc.size()), 1);
                a = r.work.sum;
            });
        },
        [&] {
            return seconds([&] {
                Work w;
                XML_Parser p = XML_ParserCreate(nullptr);
                XML_SetUserData(p, &w);
                XML_SetElementHandler(p, cStart, cEnd);
                XML_SetCharacterDataHandler(p, cText);
                XML_Parse(p, doc.data(), static_cast<int>(doc.size()), 1);
                XML_ParserFree(p);
                b = w.sum;
            });
        });
    row("expatpp virtual events / plain C callbacks", ms(t.measure), ms(t.baseline),
        t.measure / t.baseline, 1.03);
    if (a != b) {
        wrongResult("expatpp and the C callbacks saw different events");
    }
}

} // namespace bench
