// velcan events: every event an expatpp reader receives from a file, one line each.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <velcan/velcan.h>

#include "commands.h"
#include "json.h"

namespace {

std::string quoted(const char* s) {
    return s == nullptr ? std::string("null") : jsonString(s, std::char_traits<char>::length(s));
}

class EventPrinter : public expatpp {
  public:
    void startElement(const char* name, const char** atts) override {
        std::string line = "start " + std::string(name);
        for (const char** a = atts; a[0] != nullptr; a += 2) {
            line += " " + std::string(a[0]) + "=" + quoted(a[1]);
        }
        emit(line);
    }
    void endElement(const char* name) override { emit("end " + std::string(name)); }
    void charData(const char* s, int len) override {
        emit("chars " + jsonString(s, static_cast<std::size_t>(len)));
    }
    void processingInstruction(const char* target, const char* data) override {
        emit("pi " + std::string(target) + " " + quoted(data));
    }
    void defaultHandler(const char* s, int len) override {
        emit("default " + jsonString(s, static_cast<std::size_t>(len)));
    }
    int notStandaloneHandler() override {
        emit("not-standalone (rejected, as a reader that keeps the default does)");
        return expatpp::notStandaloneHandler();
    }
    void unparsedEntityDecl(const char* entityName, const char* base, const char* systemId,
                            const char* publicId, const char* notationName) override {
        emit("unparsed-entity " + std::string(entityName) + " base=" + quoted(base) +
             " system=" + quoted(systemId) + " public=" + quoted(publicId) +
             " notation=" + quoted(notationName));
    }
    void notationDecl(const char* notationName, const char* base, const char* systemId,
                      const char* publicId) override {
        emit("notation " + std::string(notationName) + " base=" + quoted(base) +
             " system=" + quoted(systemId) + " public=" + quoted(publicId));
    }
    void startNamespace(const char* prefix, const char* uri) override {
        emit("start-namespace " + quoted(prefix) + " " + quoted(uri));
    }
    void endNamespace(const char* prefix) override { emit("end-namespace " + quoted(prefix)); }

  private:
    static void emit(const std::string& line) { std::printf("%s\n", line.c_str()); }
};

} // namespace

int eventsCommand(const char* path) {
    if (!checkReadable(path)) {
        return kExitFailure;
    }
    FILE* file = std::fopen(path, "r");
    if (file == nullptr) {
        reportError(std::string("cannot open ") + path + ": " + std::strerror(errno));
        return kExitFailure;
    }
    EventPrinter printer;
    int status = 0;
    if (feedInPieces(file, printer)) {
        std::printf("status ok\n");
    } else {
        std::printf("status error line %d: %s\n", printer.XML_GetCurrentLineNumber(),
                    XML_ErrorString(printer.XML_GetErrorCode()));
        status = kExitFailure;
    }
    std::fclose(file);
    return std::fflush(stdout) == 0 ? status : kExitFailure;
}
