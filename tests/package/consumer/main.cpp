// A tiny application built against the installed library, as applications are.
#include <cstdio>
#include <cstring>

#include <velcan/velcan.h>

namespace {

class ElementCounter : public expatpp {
  public:
    int elements = 0;
    void startElement(const char*, const char**) override { ++elements; }
};

class Counter : public IBlockingProcessObserver {
  public:
    char buffer[256];
    int received = 0;
    void GetOutputBuffer(char** b, int* capacity) override {
        *b = buffer;
        *capacity = sizeof buffer;
    }
    void OutputReceived(int count) override { received += count; }
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: consumer HISTORY_FILE\n");
        return 2;
    }
    ElementCounter counter;
    const char doc[] = "<a><b/><c/></a>";
    if (counter.XML_Parse(doc, static_cast<int>(std::strlen(doc)), 1) == 0 ||
        counter.elements != 3) {
        std::fprintf(stderr, "consumer: expatpp reader failed\n");
        return 1;
    }
    const TUpdateVersionInfo info = VelcanParseUpdateFile(argv[1]);
    if (info.versions.size() != 12) {
        std::fprintf(stderr, "consumer: read %zu versions, expected 12\n", info.versions.size());
        return 1;
    }
    Counter counter2;
#if defined(_WIN32)
    const char* const echo = "cmd /c echo hello"; // "hello\r\n"
    const int echoed = 7;
#else
    const char* const echo = "echo hello";
    const int echoed = 6;
#endif
    if (LaunchBlockingProcess(echo, &counter2) != 0 || counter2.received != echoed) {
        std::fprintf(stderr, "consumer: the runner failed\n");
        return 1;
    }
    std::printf("consumer: %zu versions, newest %s\n", info.versions.size(),
                info.versions[0].number.c_str());
    return 0;
}
