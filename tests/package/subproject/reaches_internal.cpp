// The library's internal headers are not on an application's include path.
#include "process/pipe.h"

int main() {
    return 0;
}
