// velcan history: the version history as VelcanParseUpdateFile returns it.
#include <cstdio>
#include <string>

#include <velcan/velcan.h>

#include "commands.h"
#include "json.h"

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

} // namespace

int historyCommand(const char* path, bool json) {
    if (!checkReadable(path)) {
        return kExitFailure;
    }
    const TUpdateVersionInfo info = VelcanParseUpdateFile(path);
    // An empty record may hide an XML error: the reader cannot say, so look for one.
    if (info.versions.empty() && !checkWellFormed(path)) {
        return kExitFailure;
    }
    const std::string out = json ? asJson(info) : asText(info);
    std::fwrite(out.data(), 1, out.size(), stdout);
    return std::fflush(stdout) == 0 ? 0 : kExitFailure;
}
