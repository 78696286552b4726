// A large, realistic version-history file for the benchmarks.
#ifndef VELCAN_BENCH_GENERATE_HISTORY_H
#define VELCAN_BENCH_GENERATE_HISTORY_H

#include <cstdio>
#include <string>

// Writes about `bytes` bytes of version history to path: versions with two or three
// descriptions each, some with &amp;, some over several lines. Returns the version count.
inline long generateHistory(const std::string& path, long bytes) {
    FILE* out = std::fopen(path.c_str(), "wb");
    if (out == nullptr) {
        return -1;
    }
    static const char* const words[] = {"faster",   "import",   "drawing", "layer",   "export",
                                        "printing", "snapping", "network", "fonts",   "preview",
                                        "autosave", "plug-ins", "grid",    "colours", "shapes"};
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VersionHistory>\n";
    long written = 0;
    long versions = 0;
    unsigned seed = 12345;
    auto next = [&seed] { return seed = seed * 1103515245u + 12345u, (seed >> 16) & 0x7fff; };
    while (written + static_cast<long>(text.size()) < bytes) {
        ++versions;
        text += "  <Version number=\"" + std::to_string(versions / 1000) + "." +
                std::to_string(versions % 1000) + "\" date=\"20" +
                std::to_string(10 + versions % 16) + "-0" + std::to_string(1 + versions % 9) +
                "-1" + std::to_string(versions % 10) + "\">\n";
        const int descriptions = 2 + static_cast<int>(next() % 2);
        for (int d = 0; d < descriptions; ++d) {
            text += "    <FeatureDescription>";
            const int count = 6 + static_cast<int>(next() % 8);
            for (int w = 0; w < count; ++w) {
                text += words[next() % 15];
                const unsigned r = next() % 23;
                text += r == 0 ? " &amp; " : r == 1 ? "\n      " : " ";
            }
            text += "done.</FeatureDescription>\n";
        }
        text += "  </Version>\n";
        if (text.size() > (1 << 20)) {
            written += static_cast<long>(std::fwrite(text.data(), 1, text.size(), out));
            text.clear();
        }
    }
    text += "</VersionHistory>\n";
    std::fwrite(text.data(), 1, text.size(), out);
    std::fclose(out);
    return versions;
}

#endif
