/// A launcher with a fake process table inside the test program.
#pragma once

#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <string>

#include "diagnostics/debug_level.h"
#include "platform/last_error.h"
#include "server/server_launcher.h"
#include "tests/server/launcher_transcript.h"
#include "tests/support/wait_until.h"

class LauncherFixture : public testing::Test {
  protected:
    static constexpr std::int64_t oneHour = 3'600'000;
    static constexpr const char* serverName = "plate-Server.exe";

    LauncherFixture() {
        fake_processes::Reset();
        transcript = std::make_unique<LauncherTranscript>();
        diagnostics::SetDebugLevel(1);
    }
    ~LauncherFixture() override {
        diagnostics::SetDebugLevel(0);
        transcript.reset();
    }

    /// Creates a launcher that polls once and then at that period. Returns after its first poll.
    std::unique_ptr<ServerLauncher> MakeLauncher(std::int64_t milliseconds = oneHour) {
        struct Gate {
            std::atomic<bool> reached = false;
            std::atomic<bool> open = false;
        };
        // Shared, because the poll thread may still be inside the action after it is removed.
        const auto gate = std::make_shared<Gate>();
        transcript->OnEntry([gate](const std::string& entry) {
            if (entry == "list" && !gate->reached.exchange(true)) {
                EXPECT_TRUE(WaitUntil([&] { return gate->open.load(); }));
            }
        });
        auto launcher = std::make_unique<ServerLauncher>();
        EXPECT_TRUE(WaitUntil([&] { return gate->reached.load(); }));
        launcher->SetPeriod(milliseconds);
        gate->open = true;
        WaitForPoll(*launcher);
        transcript->OnEntry({});
        return launcher;
    }

    /// Returns when no poll is in progress.
    static void WaitForPoll(ServerLauncher& launcher) { launcher.SetWaitAction({}); }

    /// The system's text for an injected error.
    static std::string TextOf(std::uint32_t error) { return platform::SystemErrorText(error); }

    std::unique_ptr<LauncherTranscript> transcript;
};
