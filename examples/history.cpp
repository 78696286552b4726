// Prints a version history: each version with its date and how many features it brought.
//   history [FILE]
#include <cstdio>

#include <velcan/velcan.h>

int main(int argc, char** argv) {
    const TUpdateVersionInfo info =
        VelcanParseUpdateFile(argc > 1 ? argv[1] : "version-history.xml");
    if (info.versions.empty()) {
        std::fprintf(stderr, "no versions (a missing, empty or malformed file)\n");
        return 1;
    }
    for (const TUpdateVersion& v : info.versions) {
        std::printf("%s (%s): %zu features\n", v.number.c_str(), v.date.c_str(),
                    v.featureDescriptions.size());
    }
    return 0;
}
