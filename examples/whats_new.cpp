// An application's "What's new" after an update: the versions newer than the one the user had,
// in the file's order, each with what it brings.
//   whats_new INSTALLED_VERSION [FILE]
#include <cstdio>
#include <string>

#include <velcan/velcan.h>

// A description on one line: each run of blanks and line breaks one space.
std::string oneLine(const std::string& text) {
    std::string line;
    for (const char c : text) {
        const bool blank = c == ' ' || c == '\t' || c == '\r' || c == '\n';
        if (!blank) {
            line += c;
        } else if (!line.empty() && line.back() != ' ') {
            line += ' ';
        }
    }
    return line.empty() || line.back() != ' ' ? line : line.substr(0, line.size() - 1);
}

int main(int argc, char** argv) {
    const char* installed = argc > 1 ? argv[1] : "4.1.0";
    if (!VelcanIsVersionNumber(installed)) {
        std::fprintf(stderr, "not a version number: '%s'\n", installed);
        return 2;
    }
    const TUpdateVersionInfo history =
        VelcanParseUpdateFile(argc > 2 ? argv[2] : "version-history.xml");
    const TUpdateVersionInfo news = VelcanVersionsNewerThan(history, installed);
    if (news.versions.empty()) {
        std::printf("%s is the newest version.\n", installed);
        return 0;
    }
    const TUpdateVersion& newest = news.versions[VelcanNewestVersion(news)];
    std::printf("What's new from %s to %s:\n", installed, newest.number.c_str());
    for (const TUpdateVersion& v : news.versions) {
        std::printf("\n%s (%s)\n", v.number.c_str(), v.date.c_str());
        for (const std::string& description : v.featureDescriptions) {
            std::printf("  - %s\n", oneLine(description).c_str());
        }
    }
    return 0;
}
