// The process-wide launcher, in a separate test program because it lives until the process exits.

#include <gtest/gtest.h>

#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "server/server_launcher.h"
#include "tests/support/fake_processes.h"
#include "tests/support/wait_until.h"

namespace {

TEST(ServerLauncherInstance, IsCreatedOnceByManyThreads) {
    std::mutex mutex;
    std::set<ServerLauncher*> launchers;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            const boost::shared_ptr<ServerLauncher> launcher = GetServerLauncher();
            const std::lock_guard lock(mutex);
            launchers.insert(launcher.get());
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(launchers.size(), 1u);
    EXPECT_NE(*launchers.begin(), nullptr);
}

TEST(ServerLauncherInstance, OutlivesItsReferences) {
    ServerLauncher* const first = GetServerLauncher().get();
    EXPECT_EQ(GetServerLauncher().get(), first);
    EXPECT_TRUE(GetServerLauncher()->IsRunning());
}

TEST(ServerLauncherInstance, PollsWhenItIsCreated) {
    GetServerLauncher();
    EXPECT_TRUE(WaitUntil([] { return fake_processes::Running().size() == 1; }));
}

}  // namespace
