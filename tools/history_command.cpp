// velcan history: the version history as VelcanParseUpdateFile returns it, all of it or the
// versions newer than one, as text, JSON, Markdown or HTML.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <velcan/velcan.h>

#include <sys/stat.h>

#if defined(_WIN32)
#include <windows.h>
#else
#include <unistd.h>
#endif

#include "commands.h"
#include "history/format.h"
#include "input.h"
#include "history/release_notes.h"
#include "report.h"

#ifndef VELCAN_SAMPLE_RELATIVE
#define VELCAN_SAMPLE_RELATIVE "../share/velcan/version-history.xml"
#endif

namespace {

// The sample history installed with the tool: share/velcan beside its bin folder (the build
// tree keeps a copy in the same place relative to the tool).
std::string sampleFile() {
    std::string self;
#if defined(_WIN32)
    char path[MAX_PATH + 1];
    const DWORD n = GetModuleFileNameA(nullptr, path, sizeof path);
    self.assign(path, n < sizeof path ? n : 0);
#else
    char path[4096];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path);
    self.assign(path, n > 0 ? static_cast<size_t>(n) : 0);
#endif
    return self.substr(0, self.find_last_of("/\\") + 1) + VELCAN_SAMPLE_RELATIVE;
}

// Whether standard input holds data (a pipe, a FIFO, a file): given no FILE, its user may
// have meant it to be read.
bool inputHoldsData() {
    struct stat st;
    if (fstat(0, &st) != 0) {
        return false;
    }
#if defined(S_ISSOCK)
    if (S_ISSOCK(st.st_mode)) {
        return true;
    }
#endif
    return S_ISFIFO(st.st_mode) || S_ISREG(st.st_mode);
}

// The reader says nothing of why a record is empty: the history's own XML error, if any, read
// again from the start (a file rewound, or the bytes) by a plain reader fed as the history
// reader is fed.
template <typename... Source> bool reportXmlError(const char* path, Source... source) {
    expatpp reader;
    if (velcan::history::feedAsTheReader(source..., reader)) {
        return false;
    }
    reportError(locationOf(path, reader) + ": " + xmlErrorMessage(reader));
    return true;
}

// How much output is gathered before it is written.
const std::size_t kWriteSize = 1 << 16;

struct HistoryOptions {
    NotesFormat format = NotesFormat::Text;
    bool since = false;
    std::string sinceVersion;
};

// Reads the options; a usage error is reported and gives false.
bool readOptions(const std::vector<std::string>& options, HistoryOptions* o, int* status) {
    static const char kSince[] = "--since=";
    static const char kFormat[] = "--format=";
    bool standalone = false;
    for (const std::string& option : options) {
        if (option == "--json") {
            o->format = NotesFormat::Json;
        } else if (option == "--standalone") {
            standalone = true;
        } else if (option.compare(0, sizeof kSince - 1, kSince) == 0) {
            o->since = true;
            o->sinceVersion = option.substr(sizeof kSince - 1);
            if (!VelcanIsVersionNumber(o->sinceVersion.c_str())) {
                *status = usageError("history: --since: '" + o->sinceVersion +
                                     "' is not a version number");
                return false;
            }
        } else {
            const std::string name = option.substr(sizeof kFormat - 1);
            if (name == "text") {
                o->format = NotesFormat::Text;
            } else if (name == "json") {
                o->format = NotesFormat::Json;
            } else if (name == "markdown") {
                o->format = NotesFormat::Markdown;
            } else if (name == "html") {
                o->format = NotesFormat::Html;
            } else {
                *status = usageError("history: --format: '" + name +
                                     "' is not text, json, markdown or html");
                return false;
            }
        }
    }
    if (standalone) {
        if (o->format != NotesFormat::Html) {
            *status = usageError("history: --standalone is for --format=html");
            return false;
        }
        o->format = NotesFormat::HtmlPage;
    }
    return true;
}

} // namespace

int historyCommand(const Arguments& args) {
    std::vector<std::string> optionsGiven;
    Arguments files;
    int status = 0;
    if (!splitArguments("history", args, {"--json", "--format=", "--since=", "--standalone"},
                        &optionsGiven, &files, &status)) {
        return status;
    }
    HistoryOptions options;
    if (!readOptions(optionsGiven, &options, &status)) {
        return status;
    }
    if (files.size() > 1) {
        return usageError("history: more than one FILE given");
    }
    const char* path = files.empty() ? nullptr : files[0];
    const std::string sample = path == nullptr ? sampleFile() : std::string();
    if (path == nullptr) {
        path = sample.c_str();
        if (inputHoldsData()) {
            reportError("history: no FILE given: showing the sample history (give - to read "
                        "standard input)");
        }
    }
    const std::string shown = shownName(path);
    std::string reason;
    std::FILE* file = openForReading(path, &reason);
    if (file == nullptr) {
        reportError("cannot open " + shown + ": " + reason);
        return kExitFailure;
    }
    // A regular file is read by name, as applications read theirs; anything else can be read
    // only once, so its bytes are read into memory and the history from them.
    const bool byName = isRegularFile(file, path);
    std::string bytes;
    if (!byName && !readWhole(file, &bytes, &reason)) {
        std::fclose(file);
        reportError("cannot read " + shown + ": " + reason);
        return kExitFailure;
    }
    const TUpdateVersionInfo info =
        byName ? VelcanParseUpdateFile(path) : VelcanParseUpdateBuffer(bytes.data(), bytes.size());
    bool malformed = false;
    if (info.versions.empty()) {
        std::rewind(file);
        malformed = byName ? reportXmlError(shown.c_str(), file)
                           : reportXmlError(shown.c_str(), bytes.data(), bytes.size());
    }
    std::fclose(file);
    if (malformed) {
        return kExitFailure;
    }
    if (info.versions.empty()) {
        reportError(shown + ": no versions (the file has no Version element)");
        return kExitFailure;
    }
    // Written a version at a time: no copy of the record, nor of the whole text, is made.
    const std::unique_ptr<NotesWriter> notes = makeNotesWriter(options.format);
    std::string out = notes->begin();
    errno = 0; // a failed write's errno is kept for finishOutput()
    for (const TUpdateVersion& version : info.versions) {
        if (options.since &&
            VelcanCompareVersions(version.number.c_str(), options.sinceVersion.c_str()) <= 0) {
            continue;
        }
        notes->version(version, out);
        if (out.size() >= kWriteSize) {
            std::fwrite(out.data(), 1, out.size(), stdout);
            out.clear();
        }
    }
    out += notes->end(info.extraText);
    std::fwrite(out.data(), 1, out.size(), stdout);
    return finishOutput() ? 0 : kExitFailure;
}
