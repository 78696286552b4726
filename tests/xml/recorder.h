// A reader that writes down every event it receives, for the tests to compare.
#ifndef VELCAN_TESTS_XML_RECORDER_H
#define VELCAN_TESTS_XML_RECORDER_H

#include <algorithm>
#include <string>
#include <vector>

#include <velcan/velcan.h>

class Recorder : public expatpp {
  public:
    // Lines such as "start a x=1", "chars hello", "end a". Character data and default text
    // that arrive in several calls in a row are joined into one line.
    std::vector<std::string> events;
    int charDataCalls = 0;
    int standaloneAnswer = 0;

    void startElement(const char* name, const char** atts) override {
        std::string line = std::string("start ") + name;
        for (const char** a = atts; *a != nullptr; a += 2) {
            line += std::string(" ") + a[0] + "=" + a[1];
        }
        add(line);
    }
    void endElement(const char* name) override { add(std::string("end ") + name); }
    void charData(const char* s, int len) override {
        ++charDataCalls;
        join("chars ", std::string(s, static_cast<std::size_t>(len)));
    }
    void processingInstruction(const char* target, const char* data) override {
        add(std::string("pi ") + target + " " + data);
    }
    void defaultHandler(const char* s, int len) override {
        join("default ", std::string(s, static_cast<std::size_t>(len)));
    }
    int notStandaloneHandler() override {
        add("not-standalone");
        return standaloneAnswer;
    }
    void unparsedEntityDecl(const char* entityName, const char* base, const char* systemId,
                            const char* publicId, const char* notationName) override {
        add(std::string("unparsed ") + entityName + " " + text(base) + " " + text(systemId) + " " +
            text(publicId) + " " + text(notationName));
    }
    void notationDecl(const char* notationName, const char* base, const char* systemId,
                      const char* publicId) override {
        add(std::string("notation ") + notationName + " " + text(base) + " " + text(systemId) +
            " " + text(publicId));
    }
    void startNamespace(const char* prefix, const char* uri) override {
        add("start-ns " + text(prefix) + " " + text(uri));
    }
    void endNamespace(const char* prefix) override { add("end-ns " + text(prefix)); }

    // Feeds doc in pieces of pieceSize bytes (0: whole); returns the last XML_Parse status.
    int feed(const std::string& doc, std::size_t pieceSize) {
        if (pieceSize == 0) {
            return XML_Parse(doc.data(), static_cast<int>(doc.size()), 1);
        }
        std::size_t at = 0;
        for (;;) {
            const std::size_t n = std::min(pieceSize, doc.size() - at);
            const int isFinal = at + n == doc.size() ? 1 : 0;
            const int status = XML_Parse(doc.data() + at, static_cast<int>(n), isFinal);
            at += n;
            if (status == 0 || isFinal != 0) {
                return status;
            }
        }
    }

  private:
    std::string lastKind_;

    static std::string text(const char* s) { return s == nullptr ? "(null)" : s; }
    void add(const std::string& line) {
        events.push_back(line);
        lastKind_.clear();
    }
    void join(const std::string& kind, const std::string& s) {
        if (lastKind_ == kind && !events.empty()) {
            events.back() += s;
        } else {
            events.push_back(kind + s);
            lastKind_ = kind;
        }
    }
};

#endif
