/// The launcher with real processes. The program that it starts is in this test's folder.
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <string>

#include "diagnostics/debug_level.h"
#include "server/server_launcher.h"
#include "tests/support/environment.h"
#include "tests/support/recording_debug_output.h"
#include "tests/support/servers.h"
#include "tests/support/wait_until.h"

class ServerProcess : public testing::Test {
  protected:
    ServerProcess() {
        diagnostics::SetDebugLevel(1);
        servers::Place(VEXLANE_SERVER_PROGRAM);
    }
    ~ServerProcess() override {
        launcher.reset();
        servers::KillAll();
        servers::Remove();
        diagnostics::SetDebugLevel(0);
        test_support::UnsetEnvironment("VEXLANE_TEST_SERVER");
    }

    static void Misbehave(const char* failure) {
        servers::Place(VEXLANE_MISBEHAVING_SERVER);
        test_support::SetEnvironment("VEXLANE_TEST_SERVER", failure);
    }

    // The first wait may still be the default of five seconds.
    void StartPolling() {
        launcher = std::make_unique<ServerLauncher>();
        launcher->SetPeriod(5);
    }

    static servers::ProcessId TheServer() {
        EXPECT_TRUE(WaitUntil([] { return servers::Running().size() == 1; }));
        const auto running = servers::Running();
        return running.size() == 1 ? *running.begin() : 0;
    }

    std::ptrdiff_t LinesStartingWith(const std::string& text) const {
        const auto lines = output.Texts();
        return std::count_if(lines.begin(), lines.end(),
                             [&](const std::string& line) { return line.starts_with("ServerLauncher: " + text); });
    }

    // Expects that Stop ends a server with this failure.
    void ExpectStopEndsIt(const char* failure) {
        Misbehave(failure);
        StartPolling();
        ASSERT_NE(TheServer(), 0) << failure;
        launcher->Stop();
        EXPECT_THAT(servers::Running(), testing::IsEmpty()) << failure;
        EXPECT_EQ(servers::Zombies(), 0) << failure;
        launcher.reset();
        EXPECT_EQ(LinesStartingWith("TerminateProcess(0x0)"), 1) << "only the destructor found nothing to end";
        EXPECT_EQ(LinesStartingWith("TerminateProcess("), 1);
        output.Clear();
    }

    RecordingDebugOutput output;
    std::unique_ptr<ServerLauncher> launcher;
};
