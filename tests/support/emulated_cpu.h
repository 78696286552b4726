// Whether the test program runs on an emulated CPU: the emulated Windows suite says so in
// VELCAN_TEST_EMULATED_CPU (its ctest preset sets it), for the few results an emulator changes.
#ifndef VELCAN_TESTS_EMULATED_CPU_H
#define VELCAN_TESTS_EMULATED_CPU_H

#include <cstdlib>

inline bool onEmulatedCpu() {
    const char* cpu = std::getenv("VELCAN_TEST_EMULATED_CPU");
    return cpu != nullptr && *cpu != '\0';
}

#endif
