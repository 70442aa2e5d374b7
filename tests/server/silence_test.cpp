// The five-second rule. Nothing can block between a scan, which updates the time of the last sign of life, and the
// check of that time, so a test cannot cause a real silence. It sets the clock forward instead.

#include "tests/server/launcher_fixture.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class LauncherSilence : public LauncherFixture {
  protected:
    // Sets the clock forward once, after the scan at the start of a poll.
    void JumpAfterTheNextScan(
        std::chrono::milliseconds ahead, const std::function<void()>& then = [] {}) {
        hasJumped = false;
        fake_processes::AfterNextScan([this, ahead, then] {
            fake_processes::SetClockAhead(ahead);
            then();
            hasJumped = true;
        });
    }

    std::atomic<bool> hasJumped = false;
};

TEST_F(LauncherSilence, OfSixSecondsRestartsARunningServer) {
    const auto launcher = MakeLauncher();
    transcript->Clear();
    JumpAfterTheNextScan(6s);
    launcher->OnTimeout();
    EXPECT_THAT(transcript->Entries(),
                ElementsAre("list", "open 4660 access=2035711 inherit=1", "ServerLauncher: Restar server by timeout.",
                            "ServerLauncher: Restart server launcher", "list", "open 4660 access=2035711 inherit=1",
                            "ServerLauncher: Stop server launcher", "terminate 4660 code=4294967295",
                            "ServerLauncher: Terminated server launcher", "ServerLauncher: Start server launcher",
                            "list", "start plate-Server.exe flags=0 show=5",
                            "ServerLauncher: CreatedProcess(plate-Server.exe) - ok Process ID: 0x1235\r\n"));
}

TEST_F(LauncherSilence, OfLessThanSixSecondsIsIgnored) {
    const auto launcher = MakeLauncher();
    transcript->Clear();
    for (const std::chrono::milliseconds ahead : {0ms, 1000ms, 5000ms, 5999ms}) {
        fake_processes::SetClockAhead(0s);
        JumpAfterTheNextScan(ahead);
        launcher->OnTimeout();
        EXPECT_THAT(transcript->Lines(), IsEmpty()) << ahead.count();
        EXPECT_TRUE(hasJumped);
    }
}

TEST_F(LauncherSilence, IgnoresAClockThatWasSetBack) {
    const auto launcher = MakeLauncher();
    transcript->Clear();
    JumpAfterTheNextScan(-1h);
    launcher->OnTimeout();
    EXPECT_THAT(transcript->Lines(), IsEmpty());
    EXPECT_TRUE(hasJumped);
}

TEST_F(LauncherSilence, EndsWithASignOfLife) {
    const auto launcher = MakeLauncher();
    transcript->Clear();
    JumpAfterTheNextScan(1h, [&] { launcher->MarkAlive(); });
    launcher->OnTimeout();
    EXPECT_THAT(transcript->Lines(), IsEmpty());
    EXPECT_TRUE(hasJumped);
}

TEST_F(LauncherSilence, EndsWithAScan) {
    const auto launcher = MakeLauncher();
    transcript->Clear();
    fake_processes::SetClockAhead(1h);
    launcher->OnTimeout();
    EXPECT_THAT(transcript->Lines(), IsEmpty());
}

// Here Stop runs on the poll thread itself: the server is ended and started again, and polling goes on.
TEST_F(LauncherSilence, OnThePollThreadDoesNotEndPolling) {
    const auto launcher = MakeLauncher(1);
    ASSERT_THAT(fake_processes::Running(), ElementsAre(0x1234u));
    JumpAfterTheNextScan(6s);
    ASSERT_TRUE(WaitUntil([] { return fake_processes::Running() == std::vector<std::uint32_t>{0x1235}; }));
    WaitForPoll(*launcher);
    EXPECT_THAT(transcript->Lines(),
                ElementsAre("Restar server by timeout.", "Restart server launcher", "Start server launcher",
                            "CreatedProcess(plate-Server.exe) - ok Process ID: 0x1234\r\n",  //
                            "Restar server by timeout.", "Restart server launcher", "Stop server launcher",
                            "Terminated server launcher", "Start server launcher",
                            "CreatedProcess(plate-Server.exe) - ok Process ID: 0x1235\r\n"));
    EXPECT_THAT(transcript->EntriesOf(std::this_thread::get_id()), IsEmpty());
    EXPECT_TRUE(launcher->IsRunning());
    fake_processes::Kill(0x1235);
    EXPECT_TRUE(WaitUntil([] { return fake_processes::Running() == std::vector<std::uint32_t>{0x1236}; }));
    launcher->Stop();
    EXPECT_FALSE(launcher->IsRunning());
    EXPECT_THAT(fake_processes::Running(), IsEmpty());
}

}  // namespace
