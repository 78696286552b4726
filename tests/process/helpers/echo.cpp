// echo for platforms that have no echo program: prints its arguments, separated by
// spaces, and a line feed.
#include <cstdio>

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#endif

int main(int argc, char** argv) {
#if defined(_WIN32)
    _setmode(_fileno(stdout), _O_BINARY);
#endif
    for (int i = 1; i < argc; ++i) {
        std::fputs(argv[i], stdout);
        if (i + 1 < argc) {
            std::fputc(' ', stdout);
        }
    }
    std::fputc('\n', stdout);
    return 0;
}
