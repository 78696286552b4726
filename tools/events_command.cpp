// velcan events: every event an expatpp reader receives from a file, one line each.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <velcan/velcan.h>

#include "commands.h"
#include "history/format.h"
#include "history/json.h"
#include "input.h"
#include "report.h"

namespace {

// Prints each event as one line. The lines are gathered in one buffer of its own and written
// in large pieces: the tool's output then costs about what the parsing does.
class EventPrinter : public expatpp {
  public:
    EventPrinter() { out_.reserve(kFlushAt + 4096); }
    ~EventPrinter() override { flush(); }
    EventPrinter(const EventPrinter&) = delete;
    EventPrinter& operator=(const EventPrinter&) = delete;

    void startElement(const char* name, const char** atts) override {
        word("start ", name);
        for (const char** a = atts; a[0] != nullptr; a += 2) {
            out_ += ' ';
            out_ += a[0];
            out_ += '=';
            quoted(a[1]);
        }
        endLine();
    }
    void endElement(const char* name) override {
        word("end ", name);
        endLine();
    }
    void charData(const char* s, int len) override {
        out_ += "chars ";
        appendJsonString(out_, s, static_cast<std::size_t>(len));
        endLine();
    }
    void processingInstruction(const char* target, const char* data) override {
        word("pi ", target);
        out_ += ' ';
        quoted(data);
        endLine();
    }
    void defaultHandler(const char* s, int len) override {
        out_ += "default ";
        appendJsonString(out_, s, static_cast<std::size_t>(len));
        endLine();
    }
    int notStandaloneHandler() override {
        out_ += "not-standalone (rejected, as a reader that keeps the default does)";
        endLine();
        return expatpp::notStandaloneHandler();
    }
    void unparsedEntityDecl(const char* entityName, const char* base, const char* systemId,
                            const char* publicId, const char* notationName) override {
        word("unparsed-entity ", entityName);
        field(" base=", base);
        field(" system=", systemId);
        field(" public=", publicId);
        field(" notation=", notationName);
        endLine();
    }
    void notationDecl(const char* notationName, const char* base, const char* systemId,
                      const char* publicId) override {
        word("notation ", notationName);
        field(" base=", base);
        field(" system=", systemId);
        field(" public=", publicId);
        endLine();
    }
    void startNamespace(const char* prefix, const char* uri) override {
        field("start-namespace ", prefix);
        field(" ", uri);
        endLine();
    }
    void endNamespace(const char* prefix) override {
        field("end-namespace ", prefix);
        endLine();
    }

    // Writes what is gathered (a failure stays in stdout's error flag).
    void flush() {
        std::fwrite(out_.data(), 1, out_.size(), stdout);
        out_.clear();
    }

  private:
    static const std::size_t kFlushAt = 1 << 16;

    void word(const char* kind, const char* text) {
        out_ += kind;
        out_ += text;
    }
    void quoted(const char* s) {
        if (s == nullptr) {
            out_ += "null";
        } else {
            appendJsonString(out_, s, std::char_traits<char>::length(s));
        }
    }
    void field(const char* label, const char* value) {
        out_ += label;
        quoted(value);
    }
    void endLine() {
        out_ += '\n';
        if (out_.size() >= kFlushAt) {
            flush();
        }
    }

    std::string out_;
};

} // namespace

int eventsCommand(const Arguments& args) {
    std::vector<std::string> options;
    Arguments files;
    int status = 0;
    if (!splitArguments("events", args, {}, &options, &files, &status)) {
        return status;
    }
    if (files.size() != 1) {
        return usageError("events: expects exactly one FILE");
    }
    const char* path = files[0];
    std::string reason;
    std::FILE* file = openForReading(path, &reason);
    if (file == nullptr) {
        reportError("cannot open " + shownName(path) + ": " + reason);
        return kExitFailure;
    }
    EventPrinter printer;
    const bool wellFormed = velcan::history::feedAsTheReader(file, printer);
    std::fclose(file);
    printer.flush();
    if (wellFormed) {
        std::printf("status ok\n");
    } else {
        // The event stream ends with the status; stderr says it as every command does.
        const int line = printer.XML_GetCurrentLineNumber();
        const std::string message = xmlErrorMessage(printer);
        std::printf("status error line %d: %s\n", line, message.c_str());
        reportError(locationOf(shownName(path), printer) + ": " + message);
    }
    const bool written = finishOutput();
    return wellFormed && written ? 0 : kExitFailure;
}
