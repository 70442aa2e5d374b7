#include <gmock/gmock.h>

#include "platform/last_error.h"
#include "tests/server/server_process_fixture.h"

namespace {

using servers::Running;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(ServerProcess, FirstPollStartsIt) {
    StartPolling();
    EXPECT_NE(TheServer(), 0);
    EXPECT_TRUE(launcher->IsServerRunning());
    EXPECT_EQ(LinesStartingWith("CreatedProcess(plate-Server.exe) - ok Process ID: 0x"), 1);
}

TEST_F(ServerProcess, PollingRestartsItAfterAKill) {
    StartPolling();
    for (int round = 0; round < 3; ++round) {
        const servers::ProcessId before = TheServer();
        ASSERT_NE(before, 0);
        servers::Kill(before);
        EXPECT_TRUE(WaitUntil([before] {
            const auto running = Running();
            return running.size() == 1 && *running.begin() != before;
        }));
    }
    EXPECT_TRUE(launcher->IsRunning());
}

TEST_F(ServerProcess, DoesNotRunAfterStop) {
    StartPolling();
    ASSERT_NE(TheServer(), 0);
    launcher->Stop();
    EXPECT_THAT(Running(), IsEmpty());
    EXPECT_FALSE(launcher->IsServerRunning());
    EXPECT_FALSE(launcher->IsRunning());
    EXPECT_EQ(LinesStartingWith("TerminateProcess("), 0);
}

TEST_F(ServerProcess, CanBeStartedAfterStopWithoutPolling) {
    StartPolling();
    ASSERT_NE(TheServer(), 0);
    launcher->Stop();
    launcher->Start();
    const servers::ProcessId server = TheServer();
    ASSERT_NE(server, 0);
    EXPECT_FALSE(launcher->IsRunning());
    servers::Kill(server);
    ASSERT_TRUE(WaitUntil([&] { return !launcher->IsServerRunning(); }));
    EXPECT_THAT(Running(), IsEmpty());
}

TEST_F(ServerProcess, RestartAlwaysReplacesIt) {
    StartPolling();
    servers::ProcessId before = TheServer();
    launcher->Stop();
    launcher->Start();
    before = TheServer();
    for (int round = 0; round < 20; ++round) {
        launcher->Restart();
        const auto running = Running();
        ASSERT_EQ(running.size(), 1u) << "an ended server was treated as running";
        EXPECT_NE(*running.begin(), before);
        before = *running.begin();
    }
    EXPECT_EQ(LinesStartingWith("Already started."), 0);
    EXPECT_EQ(LinesStartingWith("TerminateProcess("), 0);
}

TEST_F(ServerProcess, DestructorOfTheLauncherEndsIt) {
    StartPolling();
    ASSERT_NE(TheServer(), 0);
    launcher.reset();
    EXPECT_THAT(Running(), IsEmpty());
}

// A program with the server's name that this library did not start

TEST_F(ServerProcess, ForeignServerIsNeitherAdoptedNorEndedWithoutARecord) {
    const auto stranger = servers::StartForeignServer();
    ASSERT_TRUE(WaitUntil([&] { return Running().contains(stranger->Id()); }));
    StartPolling();
    EXPECT_TRUE(launcher->IsServerRunning());
    launcher->Restart();
    launcher->Stop();
    EXPECT_THAT(Running(), ElementsAre(stranger->Id()));
    EXPECT_EQ(LinesStartingWith("TerminateProcess(0x0) - failed, err = "), 2);
    EXPECT_EQ(LinesStartingWith("CreatedProcess("), 0);
}

// A missing program

TEST_F(ServerProcess, MissingProgramIsLoggedOncePerPoll) {
    servers::Remove();
    StartPolling();
    ASSERT_TRUE(WaitUntil([&] { return LinesStartingWith("CreateProcess(") >= 3; }));
    constexpr std::uint32_t noSuchFile = 2;  // on every system
    EXPECT_EQ(LinesStartingWith(
                  "CreateProcess(plate-Server.exe) - failed, err = " + platform::SystemErrorText(noSuchFile) + "\r\n"),
              LinesStartingWith("CreateProcess("));
    EXPECT_THAT(Running(), IsEmpty());
    servers::Place(VEXLANE_SERVER_PROGRAM);
    EXPECT_NE(TheServer(), 0);
}

// Programs that misbehave

TEST_F(ServerProcess, FailingProgramIsRestartedAtEveryPollWithoutZombies) {
    for (const char* failure : {"dies-at-start", "crashes"}) {
        output.Clear();
        Misbehave(failure);
        StartPolling();
        EXPECT_TRUE(WaitUntil([&] { return LinesStartingWith("CreatedProcess(") >= 5; })) << failure;
        // Counting takes time: an earlier child may be reaped, and the next one end, meanwhile.
        EXPECT_TRUE(WaitUntil([] { return servers::Zombies() <= 1; })) << failure;
        launcher->Stop();
        EXPECT_TRUE(WaitUntil([&] {
            launcher->IsServerRunning();
            return servers::Zombies() == 0;
        })) << failure;
        launcher.reset();
    }
}

TEST_F(ServerProcess, ExitingProgramIsRestarted) {
    Misbehave("ends-soon");
    StartPolling();
    EXPECT_TRUE(WaitUntil([&] { return LinesStartingWith("CreatedProcess(") >= 3; }));
}

TEST_F(ServerProcess, StopEndsAnUnresponsiveProgram) {
    for (const char* failure : {"ignores-termination", "stops-itself", "spins"}) {
        ExpectStopEndsIt(failure);
    }
}

TEST_F(ServerProcess, HungProgramCountsAsRunning) {
    Misbehave("stops-itself");
    StartPolling();
    const servers::ProcessId server = TheServer();
    EXPECT_TRUE(launcher->IsServerRunning());
    launcher->Start();
    EXPECT_EQ(TheServer(), server);
    EXPECT_EQ(LinesStartingWith("Already started."), 1);
}

}  // namespace
