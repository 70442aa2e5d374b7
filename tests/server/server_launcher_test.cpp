#include "server/server_launcher.h"

#include "tests/server/launcher_fixture.h"
#include "tests/server/other_polls.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using Strings = std::vector<std::string>;

constexpr std::uint32_t accessDenied = 5;
constexpr std::uint32_t fileNotFound = 2;
constexpr std::uint32_t invalidHandle = 6;  // the error of ending process 0

class Launcher : public LauncherFixture {};

// Construction

TEST_F(Launcher, StartsTheServerInItsFirstPoll) {
    const auto launcher = MakeLauncher();
    EXPECT_THAT(transcript->Entries(),
                ElementsAre("list",                                       //
                            "ServerLauncher: Restar server by timeout.",  //
                            "ServerLauncher: Restart server launcher", "list", "ServerLauncher: Start server launcher",
                            "list", "start plate-Server.exe flags=0 show=5",
                            "ServerLauncher: CreatedProcess(plate-Server.exe) - ok Process ID: 0x1234\r\n"));
    EXPECT_THAT(fake_processes::Running(), ElementsAre(0x1234u));
    EXPECT_TRUE(launcher->IsRunning());
}

TEST_F(Launcher, StartsTheServerOnItsPollThreadNotInItsConstructor) {
    const auto launcher = MakeLauncher();
    EXPECT_THAT(transcript->EntriesOf(std::this_thread::get_id()), IsEmpty());
}

TEST_F(Launcher, DoesNotStartASecondServer) {
    fake_processes::AddForeignProcess(serverName);
    const auto launcher = MakeLauncher();
    EXPECT_THAT(transcript->Entries(), ElementsAre("list", "open 4660 access=2035711 inherit=1"));
}

TEST_F(Launcher, WritesNothingAndHidesTheWindowAtLevelZero) {
    diagnostics::SetDebugLevel(0);
    const auto launcher = MakeLauncher();
    EXPECT_THAT(transcript->Entries(), ElementsAre("list", "list", "list", "start plate-Server.exe flags=0 show=0"));
    transcript->Clear();
    launcher->Start();
    launcher->Restart();
    launcher->OnTimeout();
    launcher->Stop();
    launcher->Stop();
    fake_processes::FailStart(fileNotFound);
    launcher->Start();
    EXPECT_THAT(transcript->Lines(), IsEmpty());
}

TEST_F(Launcher, ShowsTheWindowAtANegativeLevelToo) {
    diagnostics::SetDebugLevel(-1);
    const auto launcher = MakeLauncher();
    EXPECT_THAT(fake_processes::JournalOf("start"), ElementsAre("start plate-Server.exe flags=0 show=5"));
}

TEST_F(Launcher, ReadsTheWindowModeAtConstruction) {
    const auto shown = MakeLauncher();
    diagnostics::SetDebugLevel(0);
    shown->Restart();
    EXPECT_THAT(fake_processes::JournalOf("start"),
                ElementsAre("start plate-Server.exe flags=0 show=5", "start plate-Server.exe flags=0 show=5"));
}

// Start

TEST_F(Launcher, StartWithARunningServerPrintsTheLowHalfOfItsHandle) {
    const auto launcher = MakeLauncher();
    transcript->Clear();
    launcher->Start();
    EXPECT_THAT(transcript->Entries(),
                ElementsAre("ServerLauncher: Start server launcher", "list", "open 4660 access=2035711 inherit=1",
                            "ServerLauncher: Already started. Process ID: 0x1234"));
}

TEST_F(Launcher, StartPrintsNoHandleForAForeignServer) {
    fake_processes::AddForeignProcess(serverName);
    const auto launcher = MakeLauncher();
    launcher->Start();
    EXPECT_THAT(transcript->Lines(), ElementsAre("Start server launcher", "Already started. Process ID: 0x0"));
}

TEST_F(Launcher, StartRestartsAnEndedServer) {
    const auto launcher = MakeLauncher();
    fake_processes::Kill(0x1234);
    transcript->Clear();
    launcher->Start();
    EXPECT_THAT(transcript->Entries(),
                ElementsAre("ServerLauncher: Start server launcher", "list", "start plate-Server.exe flags=0 show=5",
                            "ServerLauncher: CreatedProcess(plate-Server.exe) - ok Process ID: 0x1235\r\n"));
    EXPECT_THAT(fake_processes::Running(), ElementsAre(0x1235u));
}

TEST_F(Launcher, FailedStartIsLoggedAndLeavesTheRecordEmpty) {
    const auto launcher = MakeLauncher();
    fake_processes::Kill(0x1234);
    fake_processes::FailStart(fileNotFound);
    transcript->Clear();
    launcher->Start();
    EXPECT_THAT(transcript->Entries(),
                ElementsAre("ServerLauncher: Start server launcher", "list", "start plate-Server.exe flags=0 show=5",
                            "ServerLauncher: CreateProcess(plate-Server.exe) - failed, err = " + TextOf(fileNotFound) +
                                "\r\n"));
    transcript->Clear();
    launcher->Stop();
    EXPECT_THAT(fake_processes::JournalOf("terminate"), ElementsAre("terminate 0 code=4294967295"));
}

TEST_F(Launcher, LogsOneFailurePerPoll) {
    fake_processes::FailStart(accessDenied);
    const auto launcher = MakeLauncher(1);
    ASSERT_TRUE(WaitUntil([&] { return fake_processes::JournalOf("start").size() >= 4; }));
    launcher->Stop();
    Strings lines = transcript->Lines();
    const Strings poll = {"Restar server by timeout.", "Restart server launcher", "Start server launcher",
                          "CreateProcess(plate-Server.exe) - failed, err = " + TextOf(accessDenied) + "\r\n"};
    // Stop's first line may be between the lines of the last poll.
    std::erase(lines, "Stop server launcher");
    const std::size_t polls = fake_processes::JournalOf("start").size();
    Strings expected;
    for (std::size_t index = 0; index < polls; ++index) {
        expected.insert(expected.end(), poll.begin(), poll.end());
    }
    expected.push_back("TerminateProcess(0x0) - failed, err = " + TextOf(invalidHandle) + "\r\n");
    expected.push_back("Terminated server launcher");
    EXPECT_EQ(lines, expected);
}

TEST_F(Launcher, StartsTheServerWhenItBecomesPossible) {
    fake_processes::FailStart(fileNotFound);
    const auto launcher = MakeLauncher(1);
    ASSERT_TRUE(WaitUntil([&] { return fake_processes::JournalOf("start").size() >= 2; }));
    fake_processes::FailStart(0);
    EXPECT_TRUE(WaitUntil([&] { return fake_processes::Running().size() == 1; }));
    EXPECT_TRUE(launcher->IsRunning());
}

// Stop

TEST_F(Launcher, StopEndsPollingAndTheServer) {
    const auto launcher = MakeLauncher();
    transcript->Clear();
    launcher->Stop();
    EXPECT_THAT(transcript->Entries(),
                ElementsAre("ServerLauncher: Stop server launcher", "terminate 4660 code=4294967295",
                            "ServerLauncher: Terminated server launcher"));
    EXPECT_THAT(fake_processes::Running(), IsEmpty());
    EXPECT_FALSE(launcher->IsRunning());
}

TEST_F(Launcher, StopClearsTheRecord) {
    const auto launcher = MakeLauncher();
    launcher->Stop();
    transcript->Clear();
    launcher->Stop();
    EXPECT_THAT(transcript->Entries(),
                ElementsAre("ServerLauncher: Stop server launcher", "terminate 0 code=4294967295",
                            "ServerLauncher: TerminateProcess(0x0) - failed, err = " + TextOf(invalidHandle) + "\r\n",
                            "ServerLauncher: Terminated server launcher"));
}

TEST_F(Launcher, FailedStopIsLoggedAndClearsTheRecord) {
    const auto launcher = MakeLauncher();
    fake_processes::FailTerminate(accessDenied);
    transcript->Clear();
    launcher->Stop();
    EXPECT_THAT(transcript->Entries(),
                ElementsAre("ServerLauncher: Stop server launcher", "terminate 4660 code=4294967295",
                            "ServerLauncher: TerminateProcess(0x1234) - failed, err = " + TextOf(accessDenied) + "\r\n",
                            "ServerLauncher: Terminated server launcher"));
    fake_processes::FailTerminate(0);
    launcher->Stop();
    EXPECT_THAT(fake_processes::JournalOf("terminate"),
                ElementsAre("terminate 4660 code=4294967295", "terminate 0 code=4294967295"));
}

TEST_F(Launcher, StopEndsPollingPermanently) {
    const auto launcher = MakeLauncher(0);
    launcher->Stop();
    EXPECT_FALSE(launcher->IsRunning());
    launcher->Start();
    EXPECT_FALSE(launcher->IsRunning());
    EXPECT_EQ(fake_processes::Running().size(), 1u);
    launcher->Restart();
    EXPECT_FALSE(launcher->IsRunning());
    EXPECT_EQ(fake_processes::Running().size(), 1u);
    launcher->OnTimeout();
    EXPECT_FALSE(launcher->IsRunning());
    // Only this thread acts from here on.
    transcript->Clear();
    fake_processes::Kill(fake_processes::Running().front());
    launcher->Start();
    EXPECT_EQ(transcript->Entries(), transcript->EntriesOf(std::this_thread::get_id()));
}

TEST_F(Launcher, StopWaitsForThePollInProgress) {
    const auto launcher = MakeLauncher();
    launcher->SetPeriod(0);
    const auto stops = [&] {
        const Strings lines = transcript->Lines();
        return std::count(lines.begin(), lines.end(), "Stop server launcher");
    };
    launcher->Stop();
    transcript->Clear();

    std::atomic<bool> inPoll = false;
    transcript->OnEntry([&](const std::string& entry) {
        if (entry == "list" && !inPoll.exchange(true)) {
            EXPECT_TRUE(WaitUntil([&] { return stops() == 1; }));
            LetOthersPoll();  // a Stop that does not wait would go on meanwhile
        }
    });
    ServerLauncher polling;
    ASSERT_TRUE(WaitUntil([&] { return inPoll.load(); }));
    polling.Stop();
    EXPECT_THAT(transcript->EntriesOf(std::this_thread::get_id()),
                ElementsAre("ServerLauncher: Stop server launcher", "terminate 4661 code=4294967295",
                            "ServerLauncher: Terminated server launcher"));
    EXPECT_THAT(fake_processes::Running(), IsEmpty());
    const Strings entries = transcript->Entries();
    EXPECT_EQ(std::find(entries.begin(), entries.end(), "terminate 4661 code=4294967295"), entries.end() - 2);
    transcript->OnEntry({});
}

// Restart

TEST_F(Launcher, RestartStopsAndStartsARunningServer) {
    const auto launcher = MakeLauncher();
    transcript->Clear();
    launcher->Restart();
    EXPECT_THAT(transcript->Entries(),
                ElementsAre("ServerLauncher: Restart server launcher", "list", "open 4660 access=2035711 inherit=1",
                            "ServerLauncher: Stop server launcher", "terminate 4660 code=4294967295",
                            "ServerLauncher: Terminated server launcher", "ServerLauncher: Start server launcher",
                            "list", "start plate-Server.exe flags=0 show=5",
                            "ServerLauncher: CreatedProcess(plate-Server.exe) - ok Process ID: 0x1235\r\n"));
    EXPECT_THAT(fake_processes::Running(), ElementsAre(0x1235u));
    EXPECT_FALSE(launcher->IsRunning()) << "a server was found running, so polling ends";
}

TEST_F(Launcher, RestartOfAnEndedServerOnlyStartsIt) {
    const auto launcher = MakeLauncher();
    fake_processes::Kill(0x1234);
    transcript->Clear();
    launcher->Restart();
    EXPECT_THAT(transcript->Entries(),
                ElementsAre("ServerLauncher: Restart server launcher", "list", "ServerLauncher: Start server launcher",
                            "list", "start plate-Server.exe flags=0 show=5",
                            "ServerLauncher: CreatedProcess(plate-Server.exe) - ok Process ID: 0x1235\r\n"));
    EXPECT_TRUE(launcher->IsRunning());
}

TEST_F(Launcher, RestartOfAServerThatCannotBeEndedLeavesItRunning) {
    const auto launcher = MakeLauncher();
    fake_processes::FailTerminate(accessDenied);
    transcript->Clear();
    launcher->Restart();
    EXPECT_THAT(transcript->Lines(),
                ElementsAre("Restart server launcher", "Stop server launcher",
                            "TerminateProcess(0x1234) - failed, err = " + TextOf(accessDenied) + "\r\n",
                            "Terminated server launcher", "Start server launcher", "Already started. Process ID: 0x0"));
    EXPECT_THAT(fake_processes::Running(), ElementsAre(0x1234u));
}

// Polls

TEST_F(Launcher, PollDoesNothingWhileTheServerRuns) {
    const auto launcher = MakeLauncher();
    transcript->Clear();
    launcher->OnTimeout();
    EXPECT_THAT(transcript->Entries(), ElementsAre("list", "open 4660 access=2035711 inherit=1"));
}

TEST_F(Launcher, PollStartsAMissingServer) {
    const auto launcher = MakeLauncher();
    fake_processes::Kill(0x1234);
    transcript->Clear();
    launcher->OnTimeout();
    EXPECT_THAT(transcript->Entries(),
                ElementsAre("list",                                       //
                            "ServerLauncher: Restar server by timeout.",  //
                            "ServerLauncher: Restart server launcher", "list", "ServerLauncher: Start server launcher",
                            "list", "start plate-Server.exe flags=0 show=5",
                            "ServerLauncher: CreatedProcess(plate-Server.exe) - ok Process ID: 0x1235\r\n"));
}

TEST_F(Launcher, PollingRestartsAKilledServerEveryTime) {
    const auto launcher = MakeLauncher(1);
    for (std::uint32_t server = 0x1234; server < 0x1234 + 5; ++server) {
        ASSERT_TRUE(WaitUntil([&] { return fake_processes::Running() == std::vector<std::uint32_t>{server}; }));
        fake_processes::Kill(server);
    }
    EXPECT_TRUE(launcher->IsRunning());
}

// Process scan

struct Scan : LauncherFixture {
    // The launcher has no server and has stopped polling.
    Scan() {
        fake_processes::FailStart(fileNotFound);
        launcher = MakeLauncher();
        launcher->Stop();
        transcript->Clear();
    }
    std::unique_ptr<ServerLauncher> launcher;
};

TEST_F(Scan, FindsNothingWithoutAServer) {
    EXPECT_FALSE(launcher->IsServerRunning());
    EXPECT_THAT(transcript->Entries(), ElementsAre("list"));
}

TEST_F(Scan, SkipsTheFirstEntryRegardlessOfItsName) {
    fake_processes::SetFirstEntryName(serverName);
    EXPECT_FALSE(launcher->IsServerRunning());
    EXPECT_THAT(transcript->Entries(), ElementsAre("list"));
}

TEST_F(Scan, IgnoresCase) {
    for (const char* name : {"plate-Server.exe", "PLATE-SERVER.EXE", "plate-server.exe", "pLaTe-sErVeR.eXe"}) {
        const std::uint32_t stranger = fake_processes::AddForeignProcess(name);
        EXPECT_TRUE(launcher->IsServerRunning()) << name;
        fake_processes::Kill(stranger);
        EXPECT_FALSE(launcher->IsServerRunning()) << name;
    }
}

TEST_F(Scan, MatchesOnlyTheWholeName) {
    for (const char* name : {"plate-Server", "plate-Server.ex", "plate-Server.exe2", "plate-Server.exe ",
                             " plate-Server.exe", "aplate-Server.exe", "plate_Server.exe", "Recon64.dll", ""}) {
        fake_processes::AddForeignProcess(name);
    }
    EXPECT_FALSE(launcher->IsServerRunning());
    EXPECT_THAT(transcript->Entries(), ElementsAre("list"));
}

TEST_F(Scan, OpensOnlyProcessesWithTheName) {
    fake_processes::AddForeignProcess(serverName);
    fake_processes::AddForeignProcess("something-else.exe");
    fake_processes::AddForeignProcess("Plate-server.exe");
    EXPECT_TRUE(launcher->IsServerRunning());
    EXPECT_THAT(transcript->Entries(),
                ElementsAre("list", "open 4660 access=2035711 inherit=1", "open 4662 access=2035711 inherit=1"));
}

TEST_F(Scan, FindsNothingWhenTheListFails) {
    fake_processes::AddForeignProcess(serverName);
    fake_processes::FailList(accessDenied);
    EXPECT_FALSE(launcher->IsServerRunning());
    EXPECT_THAT(fake_processes::JournalOf("open"), IsEmpty());
    fake_processes::FailList(0);
    EXPECT_TRUE(launcher->IsServerRunning());
}

TEST_F(Scan, CountsAProcessThatCannotBeOpenedAsRunning) {
    fake_processes::AddForeignProcess(serverName);
    fake_processes::FailOpen(accessDenied);
    EXPECT_TRUE(launcher->IsServerRunning());
}

// Strangers and adoption

TEST_F(Launcher, ForeignServerIsNotAdoptedWhileTheRecordIsEmpty) {
    const std::uint32_t stranger = fake_processes::AddForeignProcess(serverName);
    const auto launcher = MakeLauncher();
    EXPECT_TRUE(launcher->IsServerRunning());
    transcript->Clear();
    launcher->Stop();
    EXPECT_THAT(transcript->Entries(),
                ElementsAre("ServerLauncher: Stop server launcher", "terminate 0 code=4294967295",
                            "ServerLauncher: TerminateProcess(0x0) - failed, err = " + TextOf(invalidHandle) + "\r\n",
                            "ServerLauncher: Terminated server launcher"));
    EXPECT_THAT(fake_processes::Running(), ElementsAre(stranger));
}

TEST_F(Launcher, RestartBesideAForeignServerStartsNothing) {
    const std::uint32_t stranger = fake_processes::AddForeignProcess(serverName);
    const auto launcher = MakeLauncher();
    launcher->Restart();
    EXPECT_THAT(fake_processes::Running(), ElementsAre(stranger));
    EXPECT_THAT(fake_processes::JournalOf("start"), IsEmpty());
}

TEST_F(Launcher, ForeignServerReplacesOursInTheRecord) {
    const auto launcher = MakeLauncher();
    const std::uint32_t stranger = fake_processes::AddForeignProcess(serverName);
    transcript->Clear();
    launcher->Start();
    EXPECT_THAT(
        transcript->Entries(),
        ElementsAre("ServerLauncher: Start server launcher", "list", "open 4660 access=2035711 inherit=1",
                    "open 4661 access=2035711 inherit=1", "ServerLauncher: Already started. Process ID: 0x1235"));
    launcher->Stop();
    EXPECT_THAT(fake_processes::JournalOf("terminate"),
                ElementsAre("terminate " + std::to_string(stranger) + " code=4294967295"));
    EXPECT_THAT(fake_processes::Running(), ElementsAre(0x1234u));
}

TEST_F(Launcher, LastOfSeveralForeignServersIsAdopted) {
    const auto launcher = MakeLauncher();
    const std::uint32_t first = fake_processes::AddForeignProcess(serverName);
    const std::uint32_t second = fake_processes::AddForeignProcess("PLATE-server.exe");
    EXPECT_TRUE(launcher->IsServerRunning());
    launcher->Stop();
    EXPECT_THAT(fake_processes::JournalOf("terminate"),
                ElementsAre("terminate " + std::to_string(second) + " code=4294967295"));
    EXPECT_THAT(fake_processes::Running(), ElementsAre(0x1234u, first));
}

TEST_F(Launcher, OurServerReplacesAForeignOneListedBeforeIt) {
    const std::uint32_t stranger = fake_processes::AddForeignProcess(serverName);
    fake_processes::FailList(accessDenied);
    const auto launcher = MakeLauncher();
    fake_processes::FailList(0);
    ASSERT_THAT(fake_processes::Running(), ElementsAre(stranger, 0x1235u));
    EXPECT_TRUE(launcher->IsServerRunning());
    launcher->Stop();
    EXPECT_THAT(fake_processes::Running(), ElementsAre(stranger));
}

TEST_F(Launcher, ForeignServerReplacesAnEndedOne) {
    const auto launcher = MakeLauncher();
    fake_processes::Kill(0x1234);
    fake_processes::AddForeignProcess(serverName);
    EXPECT_TRUE(launcher->IsServerRunning());
    launcher->Stop();
    EXPECT_THAT(fake_processes::Running(), IsEmpty());
}

TEST_F(Launcher, ForeignServerIsNotAdoptedAfterStop) {
    const auto launcher = MakeLauncher();
    launcher->Stop();
    const std::uint32_t stranger = fake_processes::AddForeignProcess(serverName);
    EXPECT_TRUE(launcher->IsServerRunning());
    launcher->Stop();
    EXPECT_THAT(fake_processes::Running(), ElementsAre(stranger));
}

TEST_F(Launcher, ForeignServerThatCannotBeOpenedCountsAsRunning) {
    const auto launcher = MakeLauncher();
    const std::uint32_t stranger = fake_processes::AddForeignProcess(serverName);
    fake_processes::FailOpen(accessDenied);
    EXPECT_TRUE(launcher->IsServerRunning());
    transcript->Clear();
    launcher->Start();
    EXPECT_THAT(transcript->Lines(), ElementsAre("Start server launcher", "Already started. Process ID: 0x1234"));
    launcher->Stop();
    EXPECT_THAT(fake_processes::JournalOf("terminate"), ElementsAre("terminate 4660 code=4294967295"));
    EXPECT_THAT(fake_processes::Running(), ElementsAre(stranger));
    EXPECT_TRUE(launcher->IsServerRunning()) << "only the foreign server runs";
}

TEST_F(Launcher, ForeignServerThatCannotBeOpenedPreventsAStart) {
    const auto launcher = MakeLauncher();
    fake_processes::AddForeignProcess(serverName);
    fake_processes::FailOpen(accessDenied);
    fake_processes::Kill(0x1234);
    launcher->OnTimeout();
    EXPECT_EQ(fake_processes::JournalOf("start").size(), 1u) << "the poll finds a server and starts none";
    launcher->Stop();
    EXPECT_THAT(fake_processes::JournalOf("terminate"), ElementsAre("terminate 4660 code=4294967295"))
        << "ours is still the one on record";
}

// Destruction

TEST_F(Launcher, DestructorEndsPollingAndTheServer) {
    auto launcher = MakeLauncher();
    transcript->Clear();
    launcher.reset();
    EXPECT_THAT(transcript->Entries(),
                ElementsAre("ServerLauncher: Stop server launcher", "terminate 4660 code=4294967295",
                            "ServerLauncher: Terminated server launcher"));
    EXPECT_THAT(fake_processes::Running(), IsEmpty());
}

// Forked children of the host

TEST_F(Launcher, DoesNothingInAForkedChild) {
    const auto launcher = MakeLauncher();
    transcript->Clear();
    fake_processes::SetForkedChild(true);
    EXPECT_TRUE(launcher->IsInForkedChild());
    EXPECT_FALSE(launcher->IsRunning());
    EXPECT_FALSE(launcher->IsServerRunning());
    launcher->Start();
    launcher->Stop();
    launcher->Restart();
    launcher->OnTimeout();
    launcher->MarkAlive();
    launcher->PollTimeoutThread::Start([] { ADD_FAILURE(); });
    launcher->SetWaitAction([](std::int64_t) { ADD_FAILURE(); });
    EXPECT_THAT(transcript->Entries(), IsEmpty());
    fake_processes::SetForkedChild(false);
    EXPECT_FALSE(launcher->IsInForkedChild());
    EXPECT_TRUE(launcher->IsRunning());
    EXPECT_TRUE(launcher->IsServerRunning());
    launcher->Stop();
    EXPECT_THAT(fake_processes::Running(), IsEmpty());
}

TEST_F(Launcher, WorksInTheForkedChildThatCreatedIt) {
    fake_processes::SetForkedChild(true);
    const auto launcher = MakeLauncher();
    EXPECT_FALSE(launcher->IsInForkedChild());
    EXPECT_TRUE(launcher->IsRunning());
    launcher->Stop();
    EXPECT_THAT(fake_processes::JournalOf("terminate"), ElementsAre("terminate 4660 code=4294967295"));
}

TEST_F(Launcher, CanBeDestroyedWhileItPolls) {
    for (int round = 0; round < 50; ++round) {
        auto launcher = std::make_unique<ServerLauncher>();
        launcher->SetPeriod(0);
        if (round % 2 == 0) {
            ASSERT_TRUE(WaitUntil([&] { return !fake_processes::Running().empty(); }));
        }
        launcher.reset();
        EXPECT_THAT(fake_processes::Running(), IsEmpty());
    }
}

}  // namespace
