// Compiled by a test that expects the compiler to warn: a reader kept by value in a growing
// vector is copied, and each copy would free the one parser.
#include <vector>

#include <velcan/xml/expatpp.h>

class Reader : public expatpp {};

int main() {
    std::vector<Reader> readers;
    readers.push_back(Reader());
    return 0;
}
