// velcan history: the version history as VelcanParseUpdateFile returns it.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <velcan/velcan.h>

#if defined(_WIN32)
#include <windows.h>
#else
#include <unistd.h>
#endif

#include "commands.h"
#include "history/format.h"
#include "json.h"
#include "input.h"
#include "report.h"

#ifndef VELCAN_SAMPLE_RELATIVE
#define VELCAN_SAMPLE_RELATIVE "../share/velcan/version-history.xml"
#endif

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::string trimmed(const std::string& s) {
    std::size_t begin = 0;
    std::size_t end = s.size();
    while (begin < end && isBlank(s[begin])) {
        ++begin;
    }
    while (end > begin && isBlank(s[end - 1])) {
        --end;
    }
    return s.substr(begin, end - begin);
}

// A description as a bullet: its lines trimmed, the first behind "  - ", the rest indented
// under it, blank lines dropped.
void appendBullet(std::string& out, const std::string& description) {
    const std::string text = trimmed(description);
    std::size_t start = 0;
    bool first = true;
    while (start <= text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos) {
            end = text.size();
        }
        const std::string line = trimmed(text.substr(start, end - start));
        if (first || !line.empty()) {
            out += first ? "  - " : "    ";
            out += line;
            out += '\n';
            first = false;
        }
        start = end + 1;
    }
}

std::string asText(const TUpdateVersionInfo& info) {
    std::string out;
    for (const TUpdateVersion& version : info.versions) {
        out += "Version ";
        out += version.number.empty() ? "(no number)" : version.number;
        if (!version.date.empty()) {
            out += " (" + version.date + ")";
        }
        out += '\n';
        for (const std::string& description : version.featureDescriptions) {
            appendBullet(out, description);
        }
    }
    return out;
}

std::string asJson(const TUpdateVersionInfo& info) {
    std::string out = "{\"versions\":[";
    for (std::size_t v = 0; v < info.versions.size(); ++v) {
        const TUpdateVersion& version = info.versions[v];
        out += v == 0 ? "{" : ",{";
        out += "\"number\":" + jsonString(version.number);
        out += ",\"date\":" + jsonString(version.date);
        out += ",\"featureDescriptions\":[";
        for (std::size_t d = 0; d < version.featureDescriptions.size(); ++d) {
            if (d != 0) {
                out += ',';
            }
            out += jsonString(version.featureDescriptions[d]);
        }
        out += "]}";
    }
    out += "],\"extraText\":" + jsonString(info.extraText) + "}\n";
    return out;
}

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

// The reader says nothing of why a record is empty: the file's own XML error, if any, read
// again from the start by a plain reader fed as the history reader is fed.
bool reportXmlError(std::FILE* file, const char* path) {
    std::rewind(file);
    expatpp reader;
    if (velcan::history::feedAsTheReader(file, reader)) {
        return false;
    }
    reportError(locationOf(path, reader) + ": " + XML_ErrorString(reader.XML_GetErrorCode()));
    return true;
}

} // namespace

int historyCommand(const Arguments& args) {
    std::vector<std::string> options;
    Arguments files;
    int status = 0;
    if (!splitArguments("history", args, {"--json"}, &options, &files, &status)) {
        return status;
    }
    if (files.size() > 1) {
        return usageError("history: more than one FILE given");
    }
    const bool json = !options.empty();
    const char* path = files.empty() ? nullptr : files[0];
    const std::string sample = path == nullptr ? sampleFile() : std::string();
    if (path == nullptr) {
        path = sample.c_str();
    }
    const std::string shown = shownName(path);
    std::string reason;
    std::FILE* file = openForReading(path, &reason);
    if (file == nullptr) {
        reportError("cannot open " + shown + ": " + reason);
        return kExitFailure;
    }
    // The library opens the file by name: a pipe is read once, into a copy it can open.
    NamedCopy named;
    if (!named.make(file, path, &reason)) {
        std::fclose(file);
        reportError("cannot read " + shown + ": " + reason);
        return kExitFailure;
    }
    const TUpdateVersionInfo info = VelcanParseUpdateFile(named.path().c_str());
    const bool malformed = info.versions.empty() && reportXmlError(file, shown.c_str());
    std::fclose(file);
    if (malformed) {
        return kExitFailure;
    }
    if (info.versions.empty()) {
        reportError(shown + ": no versions (the file has no Version element)");
        return kExitFailure;
    }
    const std::string out = json ? asJson(info) : asText(info);
    return writeOut(out) ? 0 : kExitFailure;
}
