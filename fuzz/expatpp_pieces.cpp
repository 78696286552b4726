// Feeds expatpp a document in pieces whose sizes the fuzzer chooses, through a reader that
// reads every byte of every text an event hands it.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include <velcan/velcan.h>

namespace {

class Toucher : public expatpp {
  public:
    unsigned sum = 0;

    void startElement(const char* name, const char** atts) override {
        touch(name);
        for (const char** a = atts; *a != nullptr; a += 2) {
            touch(a[0]);
            touch(a[1]);
        }
    }
    void endElement(const char* name) override { touch(name); }
    void charData(const char* s, int len) override {
        touch(s, len);
        sum += emptyCharData(s, len) ? 1 : 0;
    }
    void processingInstruction(const char* target, const char* data) override {
        touch(target);
        touch(data);
        sum += static_cast<unsigned>(skipWhiteSpace(data));
    }
    void defaultHandler(const char* s, int len) override { touch(s, len); }
    int notStandaloneHandler() override { return static_cast<int>(sum & 1); }
    void unparsedEntityDecl(const char* entityName, const char* base, const char* systemId,
                            const char* publicId, const char* notationName) override {
        touch(entityName);
        touch(base);
        touch(systemId);
        touch(publicId);
        touch(notationName);
    }
    void notationDecl(const char* notationName, const char* base, const char* systemId,
                      const char* publicId) override {
        touch(notationName);
        touch(base);
        touch(systemId);
        touch(publicId);
    }

  private:
    void touch(const char* s) {
        if (s != nullptr) {
            touch(s, static_cast<int>(std::strlen(s)));
        }
    }
    void touch(const char* s, int len) {
        for (int i = 0; i < len; ++i) {
            sum = sum * 31 + static_cast<unsigned char>(s[i]);
        }
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const size_t pieceSize = input.ConsumeIntegralInRange<size_t>(0, 64);
    const std::vector<char> doc = input.ConsumeRemainingBytes<char>();
    Toucher reader;
    size_t at = 0;
    for (;;) {
        // Piece size 0 means the whole rest in one piece.
        const size_t n = pieceSize == 0 ? doc.size() - at : std::min(pieceSize, doc.size() - at);
        const int isFinal = at + n == doc.size() ? 1 : 0;
        // A piece that is not a copy of its own, so reads past it are caught.
        std::vector<char> piece(doc.begin() + static_cast<ptrdiff_t>(at),
                                doc.begin() + static_cast<ptrdiff_t>(at + n));
        const int status = reader.XML_Parse(piece.data(), static_cast<int>(n), isFinal);
        at += n;
        if (status == 0) {
            reader.XML_GetErrorCode();
            reader.XML_GetCurrentLineNumber();
            break;
        }
        if (isFinal != 0) {
            break;
        }
    }
    return 0;
}
