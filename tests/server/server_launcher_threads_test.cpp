// Many threads that use one launcher.

#include <algorithm>
#include <chrono>
#include <thread>

#include "tests/server/launcher_fixture.h"

namespace {

class LauncherThreads : public LauncherFixture {
  protected:
    // Counts servers that run at the same time, of which there must never be two.
    LauncherThreads() {
        transcript->OnEntry([this](const std::string& entry) {
            Linger(entry);
            if (entry.starts_with("start ")) {
                maxRunning = std::max<std::size_t>(maxRunning, fake_processes::Running().size());
                ++starts;
            }
        });
    }

    template <class... Actions>
    void RunTogether(int rounds, Actions... actions) {
        std::vector<std::thread> threads;
        (threads.emplace_back([rounds, actions] {
            for (int round = 0; round < rounds; ++round) {
                actions();
                std::this_thread::yield();
            }
        }),
         ...);
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    // Sleeps between the list and the action on it, so that an unsynchronised thread would act in between.
    static void Linger(const std::string& entry) {
        if (entry == "list") {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    }

    static void KillOne() {
        const auto running = fake_processes::Running();
        if (!running.empty()) {
            fake_processes::Kill(running.front());
        }
    }

    std::atomic<std::size_t> maxRunning = 0;
    std::atomic<int> starts = 0;
};

TEST_F(LauncherThreads, NeverStartASecondServer) {
    ServerLauncher launcher;
    launcher.SetPeriod(0);
    RunTogether(
        100, [&] { launcher.Start(); }, [&] { launcher.Restart(); }, [&] { launcher.OnTimeout(); },
        [&] { launcher.Restart(); }, [&] { KillOne(); }, [&] { launcher.MarkAlive(); });
    EXPECT_EQ(maxRunning, 1u);
    EXPECT_GT(starts, 1);
    launcher.Start();
    EXPECT_EQ(fake_processes::Running().size(), 1u);
}

TEST_F(LauncherThreads, NeverStartASecondServerDuringPolls) {
    ServerLauncher launcher;
    launcher.SetPeriod(0);
    RunTogether(
        100, [&] { launcher.Start(); }, [&] { KillOne(); }, [&] { launcher.IsServerRunning(); },
        [&] { launcher.MarkAlive(); });
    EXPECT_EQ(maxRunning, 1u);
    EXPECT_TRUE(launcher.IsRunning());
    EXPECT_TRUE(WaitUntil([] { return fake_processes::Running().size() == 1; }));
}

TEST_F(LauncherThreads, CanStopAndStartAtTheSameTime) {
    ServerLauncher launcher;
    launcher.SetPeriod(0);
    RunTogether(
        200, [&] { launcher.Start(); }, [&] { launcher.Stop(); }, [&] { launcher.Stop(); },
        [&] { launcher.Restart(); });
    EXPECT_EQ(maxRunning, 1u);
    launcher.Stop();
    EXPECT_TRUE(fake_processes::Running().empty());
    EXPECT_FALSE(launcher.IsRunning());
}

// The race at startup: the first poll against the first detector's restart.
TEST_F(LauncherThreads, FirstPollAndRestartStartOneServer) {
    for (int round = 0; round < 100; ++round) {
        fake_processes::Reset();
        transcript = nullptr;
        transcript = std::make_unique<LauncherTranscript>();
        std::atomic<std::size_t> most = 0;
        transcript->OnEntry([&](const std::string& entry) {
            Linger(entry);
            if (entry.starts_with("start ")) {
                most = std::max<std::size_t>(most, fake_processes::Running().size());
            }
        });
        ServerLauncher launcher;
        launcher.Restart();
        EXPECT_TRUE(WaitUntil([] { return fake_processes::Running().size() == 1; }));
        EXPECT_EQ(most, 1u);
        launcher.Stop();
        transcript->OnEntry({});
    }
}

}  // namespace
