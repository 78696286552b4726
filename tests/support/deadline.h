// Waiting with a deadline, so that every wait of the suite ends and can say what it found.
#ifndef VELCAN_TESTS_DEADLINE_H
#define VELCAN_TESTS_DEADLINE_H

#include <chrono>
#include <thread>

// How long a test waits for something that takes moments on an idle machine.
const std::chrono::seconds kPatience(60);

// Yields until done() is true or `limit` has passed; tells whether done() came true.
template <typename Done>
bool waitUntil(Done done, std::chrono::steady_clock::duration limit = kPatience) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= end) {
            return done();
        }
        std::this_thread::yield();
    }
    return true;
}

#endif
