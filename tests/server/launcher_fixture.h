/// A launcher over the table of processes inside the test program.
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
    static constexpr std::int64_t anHour = 3'600'000;
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

    /// A launcher that polls once and then not for an hour, or after that period. Returns after its first poll.
    std::unique_ptr<ServerLauncher> MakeLauncher(std::int64_t milliseconds = anHour) {
        struct Gate {
            std::atomic<bool> reached = false;
            std::atomic<bool> open = false;
        };
        // Shared: the poll thread may still be inside when the next poll is on its way.
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

    /// The system's text for an error that an operation was made to fail with.
    static std::string TextOf(std::uint32_t error) { return platform::SystemErrorText(error); }

    std::unique_ptr<LauncherTranscript> transcript;
};
