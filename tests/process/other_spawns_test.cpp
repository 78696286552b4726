// Children that other code of the application starts while a run is under way hold nothing
// of the run's. A program of its own, which neither valgrind (where the spawns back to back
// only measure its slowness) nor the sanitizers (whose runtime opens inheritable pipes of its
// own, which the spawned children would be counted holding) run: its label says so.
#include <chrono>

#include <gtest/gtest.h>

#include "collector.h"
#include "support/deadline.h"
#include "support/other_spawns.h"

namespace {

TEST(Isolation, ChildrenSpawnedByOtherCodeHoldNoDescriptorOfARun) {
    // Three threads start children with posix_spawn back to back, as other code in an
    // application may, while this thread runs short commands. A child holding a run's pipe
    // would keep that run open for as long as it lives.
    // Runs go on past the first 300 until 50 spawns have fallen wholly inside a run, so that
    // the test cannot pass without the overlap it is about.
    OtherSpawns others;
    const auto giveUp = std::chrono::steady_clock::now() + kPatience;
    for (int i = 0;
         i < 300 || (others.spawnedDuringRuns() < 50 && std::chrono::steady_clock::now() < giveUp);
         ++i) {
        others.runStarts();
        EXPECT_EQ(launch("echo short", 64), (Result{0, "short\n"}));
        others.runEnds();
    }
    others.stop();
    EXPECT_GE(others.spawnedDuringRuns(), 50)
        << "other code's spawns seldom fell inside a run (" << others.spawned()
        << " spawns in all): too few overlaps to tell";
    EXPECT_EQ(others.held(), 0);
}

} // namespace
