// The runner allocates nothing per piece of output. This program counts every operator new.
#include <atomic>
#include <cstdlib>

#include <gtest/gtest.h>

#include "collector.h"
#include "support/replaced_new.h"

namespace {
std::atomic<long> allocations(0);
}

void* testAllocate(std::size_t size) {
    ++allocations;
    return std::malloc(size);
}

namespace {

long allocationsFor(const char* commandLine, int capacity, int expectedPieces) {
    Collector out(capacity);
    out.output.reserve(1 << 20); // the collector's own growth is not the runner's
    const long before = allocations;
    EXPECT_EQ(LaunchBlockingProcess(commandLine, &out), 0);
    const long made = allocations - before;
    EXPECT_EQ(out.pieces, expectedPieces);
    return made;
}

TEST(RunnerAllocation, NoAllocationPerPieceOfOutput) {
    // Capacity 2 reads one byte at a time: 3000 bytes make 3000 pieces.
    const long onePiece = allocationsFor("printf x", 2, 1);
    const long manyPieces = allocationsFor("head -c 3000 /dev/zero", 2, 3000);
    EXPECT_EQ(manyPieces, onePiece);
}

} // namespace
