// The rule of five seconds. Between a scan, which renews the time of the last sign of life, and the look at that time
// nothing can block, so a real silence cannot be made; what can be made is a jump of the local time that both are read
// in, by another time zone.

#include "tests/server/launcher_fixture.h"
#include "tests/support/environment.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The system's offsets are those to be added to local time, so a jump ahead has a minus sign.
void SetClockAhead(int seconds) {
    std::array<char, 32> zone = {};
    const int absolute = seconds < 0 ? -seconds : seconds;
    std::snprintf(zone.data(), zone.size(), "TST%c%02d:%02d:%02d", seconds < 0 ? '+' : '-', absolute / 3600,
                  absolute / 60 % 60, absolute % 60);
    test_support::SetEnvironment("TZ", zone.data());
    test_support::ReadTimeZone();
}

class LauncherSilence : public LauncherFixture {
  protected:
    LauncherSilence() { SetClockAhead(0); }
    ~LauncherSilence() override {
        transcript->OnEntry({});
        test_support::UnsetEnvironment("TZ");
        test_support::ReadTimeZone();
    }

    // The clock jumps once, behind the scan that a poll begins with.
    void JumpBehindTheNextScan(
        int seconds, std::function<void()> then = [] {}) {
        transcript->OnEntry(
            [this, seconds, then, jumped = std::make_shared<std::atomic<bool>>(false)](const std::string& entry) {
                if (entry == "close" && !jumped->exchange(true)) {
                    SetClockAhead(seconds);
                    then();
                }
            });
    }
};

TEST_F(LauncherSilence, OfSixSecondsRestartsAServerThatIsThere) {
    const auto launcher = MakeLauncher();
    transcript->Clear();
    JumpBehindTheNextScan(6);
    launcher->OnTimeout();
    EXPECT_THAT(
        transcript->Entries(),
        ElementsAre("list", "open 4660 access=2035711 inherit=1", "close", "ServerLauncher: Restar server by timeout.",
                    "ServerLauncher: Restart server launcher", "list", "open 4660 access=2035711 inherit=1", "close",
                    "ServerLauncher: Stop server launcher", "terminate 4660 code=4294967295",
                    "ServerLauncher: Terminated server launcher", "ServerLauncher: Start server launcher", "list",
                    "close", "start plate-Server.exe flags=0 show=5",
                    "ServerLauncher: CreatedProcess(plate-Server.exe) - ok Process ID: 0x1235\r\n"));
}

TEST_F(LauncherSilence, OfLessThanSixSecondsIsNoReason) {
    for (const int seconds : {0, 1, 4, 5}) {
        fake_processes::Reset();
        transcript.reset();
        transcript = std::make_unique<LauncherTranscript>();
        SetClockAhead(0);
        const auto launcher = MakeLauncher();
        transcript->Clear();
        JumpBehindTheNextScan(seconds);
        launcher->OnTimeout();
        EXPECT_THAT(transcript->Lines(), IsEmpty()) << seconds;
        transcript->OnEntry({});
    }
}

TEST_F(LauncherSilence, OfAClockThatWasSetBackIsNoReason) {
    const auto launcher = MakeLauncher();
    transcript->Clear();
    JumpBehindTheNextScan(-3600);
    launcher->OnTimeout();
    EXPECT_THAT(transcript->Lines(), IsEmpty());
}

TEST_F(LauncherSilence, IsEndedByASignOfLife) {
    const auto launcher = MakeLauncher();
    transcript->Clear();
    JumpBehindTheNextScan(3600, [&] { launcher->MarkAlive(); });
    launcher->OnTimeout();
    EXPECT_THAT(transcript->Lines(), IsEmpty());
}

TEST_F(LauncherSilence, BeforeTheScanIsEndedByTheScan) {
    const auto launcher = MakeLauncher();
    transcript->Clear();
    SetClockAhead(3600);
    launcher->OnTimeout();
    EXPECT_THAT(transcript->Lines(), IsEmpty());
}

// Stop is then reached on the poll thread itself: the server is ended and started again, and polling goes on.
TEST_F(LauncherSilence, OnThePollThreadRestartsTheServerAndPollingGoesOn) {
    const auto launcher = MakeLauncher(1);
    ASSERT_THAT(fake_processes::Running(), ElementsAre(0x1234u));
    JumpBehindTheNextScan(6);
    ASSERT_TRUE(ComesTrue([] { return fake_processes::Running() == std::vector<std::uint32_t>{0x1235}; }));
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
    EXPECT_TRUE(ComesTrue([] { return fake_processes::Running() == std::vector<std::uint32_t>{0x1236}; }));
    launcher->Stop();
    EXPECT_FALSE(launcher->IsRunning());
    EXPECT_THAT(fake_processes::Running(), IsEmpty());
}

}  // namespace
