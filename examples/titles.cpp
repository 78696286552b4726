// Collects the text of every <title> element of a document fed in pieces.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <velcan/velcan.h>

class TitleReader : public expatpp {
  public:
    std::vector<std::string> titles;

    void startElement(const char* name, const char**) override {
        inTitle_ = std::strcmp(name, "title") == 0;
        if (inTitle_) {
            titles.emplace_back();
        }
    }
    void endElement(const char*) override { inTitle_ = false; }
    // Text may arrive in several calls, split anywhere: len bytes, not NUL-terminated.
    void charData(const char* s, int len) override {
        if (inTitle_) {
            titles.back().append(s, static_cast<std::size_t>(len));
        }
    }

  private:
    bool inTitle_ = false;
};

int main() {
    const std::string doc = "<books><title>Dune</title><title>Emma</title></books>";
    TitleReader reader;
    // Pieces of any size: three bytes here, then an empty last one.
    for (std::size_t at = 0; at <= doc.size(); at += 3) {
        const int n = static_cast<int>(std::min<std::size_t>(3, doc.size() - at));
        if (reader.XML_Parse(doc.data() + at, n, n == 0) == 0) {
            std::fprintf(stderr, "line %d: %s\n", reader.XML_GetCurrentLineNumber(),
                         XML_ErrorString(reader.XML_GetErrorCode()));
            return 1;
        }
    }
    for (const std::string& title : reader.titles) {
        std::printf("%s\n", title.c_str());
    }
    return 0;
}
