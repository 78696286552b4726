// What a VelcanCommand run starts, counted: this program replaces posix_spawn, which the
// library calls, with one that counts the calls.
#include <dlfcn.h>
#include <spawn.h>

#include <cerrno>

#include <gtest/gtest.h>

#include <velcan/velcan.h>

namespace {
int spawns = 0;
} // namespace

extern "C" int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                           const posix_spawnattr_t* attributes, char* const argv[],
                           char* const envp[]) {
    ++spawns;
    using Spawn = int (*)(pid_t*, const char*, const posix_spawn_file_actions_t*,
                          const posix_spawnattr_t*, char* const[], char* const[]);
    return reinterpret_cast<Spawn>(dlsym(RTLD_NEXT, "posix_spawn"))(pid, path, actions, attributes,
                                                                    argv, envp);
}

namespace {

TEST(CommandStart, CancelledBeforeTheRunStartsNoProcess) {
    VelcanCancel cancel;
    cancel.Cancel();
    VelcanCommand command;
    const char* const words[] = {"true", nullptr};
    command.SetArguments(words);
    command.SetCancel(&cancel);
    spawns = 0;
    EXPECT_EQ(command.Run().end, VelcanRunEnd::Cancelled);
    EXPECT_EQ(spawns, 0);
    // The count is the library's: a run that does start is counted.
    cancel.Reset();
    EXPECT_EQ(command.Run().end, VelcanRunEnd::Exited);
    EXPECT_EQ(spawns, 1);
}

} // namespace
