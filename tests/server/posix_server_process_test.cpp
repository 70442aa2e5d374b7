// The launcher with real processes: what it starts is a program in this test's own folder.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>

#include "diagnostics/debug_level.h"
#include "server/server_launcher.h"
#include "tests/support/comes_true.h"
#include "tests/support/posix_servers.h"
#include "tests/support/recording_debug_output.h"

namespace {

using posix_servers::Running;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

class ServerProcess : public testing::Test {
  protected:
    ServerProcess() {
        diagnostics::SetDebugLevel(1);
        posix_servers::Place(VEXLANE_SERVER_PROGRAM);
    }
    ~ServerProcess() override {
        launcher.reset();
        posix_servers::KillAll();
        posix_servers::Remove();
        diagnostics::SetDebugLevel(0);
        unsetenv("VEXLANE_TEST_SERVER");
    }

    void Misbehave(const char* failure) {
        posix_servers::Place(VEXLANE_MISBEHAVING_SERVER);
        setenv("VEXLANE_TEST_SERVER", failure, 1);
    }

    // The first wait may already be one of five seconds.
    void StartPolling() {
        launcher = std::make_unique<ServerLauncher>();
        launcher->SetPeriod(5);
    }

    static pid_t TheServer() {
        EXPECT_TRUE(ComesTrue([] { return Running().size() == 1; }));
        const auto running = Running();
        return running.size() == 1 ? *running.begin() : 0;
    }

    std::ptrdiff_t LinesThatBegin(const std::string& text) const {
        const auto lines = output.Texts();
        return std::count_if(lines.begin(), lines.end(),
                             [&](const std::string& line) { return line.starts_with("ServerLauncher: " + text); });
    }

    RecordingDebugOutput output;
    std::unique_ptr<ServerLauncher> launcher;
};

TEST_F(ServerProcess, IsStartedByTheFirstPoll) {
    StartPolling();
    EXPECT_NE(TheServer(), 0);
    EXPECT_TRUE(launcher->IsServerRunning());
    EXPECT_EQ(LinesThatBegin("CreatedProcess(plate-Server.exe) - ok Process ID: 0x"), 1);
}

TEST_F(ServerProcess, ComesBackWhenItIsKilledWhilePollingRuns) {
    StartPolling();
    for (int round = 0; round < 3; ++round) {
        const pid_t before = TheServer();
        ASSERT_NE(before, 0);
        posix_servers::Kill(before);
        EXPECT_TRUE(ComesTrue([before] {
            const auto running = Running();
            return running.size() == 1 && *running.begin() != before;
        }));
    }
    EXPECT_TRUE(launcher->IsRunning());
}

TEST_F(ServerProcess, IsGoneForGoodBehindAStop) {
    StartPolling();
    ASSERT_NE(TheServer(), 0);
    launcher->Stop();
    EXPECT_THAT(Running(), IsEmpty());
    EXPECT_FALSE(launcher->IsServerRunning());
    EXPECT_FALSE(launcher->IsRunning());
    EXPECT_EQ(LinesThatBegin("TerminateProcess("), 0);
}

TEST_F(ServerProcess, CanBeStartedAgainBehindAStopAndIsNotWatchedThen) {
    StartPolling();
    ASSERT_NE(TheServer(), 0);
    launcher->Stop();
    launcher->Start();
    const pid_t server = TheServer();
    ASSERT_NE(server, 0);
    EXPECT_FALSE(launcher->IsRunning());
    posix_servers::Kill(server);
    ASSERT_TRUE(ComesTrue([&] { return !launcher->IsServerRunning(); }));
    EXPECT_THAT(Running(), IsEmpty());
}

TEST_F(ServerProcess, IsReplacedByEveryRestart) {
    StartPolling();
    pid_t before = TheServer();
    launcher->Stop();
    launcher->Start();
    before = TheServer();
    for (int round = 0; round < 20; ++round) {
        launcher->Restart();
        const auto running = Running();
        ASSERT_EQ(running.size(), 1u) << "a server that was ended must not be taken for one that runs";
        EXPECT_NE(*running.begin(), before);
        before = *running.begin();
    }
    EXPECT_EQ(LinesThatBegin("Already started."), 0);
    EXPECT_EQ(LinesThatBegin("TerminateProcess("), 0);
}

TEST_F(ServerProcess, IsGoneWhenTheLauncherIsDestroyed) {
    StartPolling();
    ASSERT_NE(TheServer(), 0);
    launcher.reset();
    EXPECT_THAT(Running(), IsEmpty());
}

TEST_F(ServerProcess, LeavesNoZombieBehind) {
    StartPolling();
    for (int round = 0; round < 3; ++round) {
        const pid_t server = TheServer();
        posix_servers::Kill(server);
        ASSERT_TRUE(ComesTrue([server] { return !Running().contains(server) && Running().size() == 1; }));
    }
    EXPECT_EQ(posix_servers::Zombies(), 0);
    launcher->Stop();
    EXPECT_EQ(posix_servers::Zombies(), 0);
}

TEST_F(ServerProcess, InheritsNoDescriptorOfTheHost) {
    int pipe[2] = {};
    ASSERT_EQ(::pipe(pipe), 0);  // both ends would be inherited by a plain child
    const int file = ::open("/proc/self/status", O_RDONLY);
    ASSERT_GE(file, 0);
    StartPolling();
    const pid_t server = TheServer();
    ASSERT_NE(server, 0);
    const fs::path folder = "/proc/" + std::to_string(server) + "/fd";
    // Between its birth and its program a child still has what its parent has.
    EXPECT_TRUE(ComesTrue([&] {
        return std::all_of(fs::directory_iterator(folder), fs::directory_iterator(), [](const auto& entry) {
            const std::string name = entry.path().filename();
            std::error_code gone;
            return (name == "0" || name == "1" || name == "2") && fs::read_symlink(entry.path(), gone) == "/dev/null";
        });
    }));
    for (const int descriptor : {pipe[0], pipe[1], file}) {
        ::close(descriptor);
    }
}

// A program of the server's name that somebody else has started

TEST_F(ServerProcess, OfAStrangerIsSeenButNeitherAdoptedNorEndedWithoutARecord) {
    const pid_t stranger = posix_servers::StartStranger();
    ASSERT_TRUE(ComesTrue([stranger] { return Running().contains(stranger); }));
    StartPolling();
    EXPECT_TRUE(launcher->IsServerRunning());
    launcher->Restart();
    launcher->Stop();
    EXPECT_THAT(Running(), ElementsAre(stranger));
    EXPECT_EQ(LinesThatBegin("TerminateProcess(0x0) - failed, err = "), 2);
    EXPECT_EQ(LinesThatBegin("CreatedProcess("), 0);
}

TEST_F(ServerProcess, OfAStrangerIsAdoptedInPlaceOfOursAndEndedByTheNextStop) {
    StartPolling();
    const pid_t ours = TheServer();
    ASSERT_NE(ours, 0);
    pid_t stranger = posix_servers::StartStranger();
    ASSERT_TRUE(ComesTrue([] { return Running().size() == 2; }));
    // With a list in the order of the ids the last one is adopted.
    ASSERT_GT(stranger, ours);
    EXPECT_TRUE(launcher->IsServerRunning());
    launcher->Stop();
    EXPECT_THAT(Running(), ElementsAre(ours));
    int status = 0;
    EXPECT_EQ(waitpid(stranger, &status, 0), stranger) << "it was the test's to wait for";
    EXPECT_TRUE(WIFSIGNALED(status));
}

// A program that is not there

TEST_F(ServerProcess, ThatIsMissingIsOneLineForEachPollUntilItIsThere) {
    posix_servers::Remove();
    StartPolling();
    ASSERT_TRUE(ComesTrue([&] { return LinesThatBegin("CreateProcess(") >= 3; }));
    EXPECT_EQ(LinesThatBegin("CreateProcess(plate-Server.exe) - failed, err = No such file or directory\r\n"),
              LinesThatBegin("CreateProcess("));
    EXPECT_THAT(Running(), IsEmpty());
    posix_servers::Place(VEXLANE_SERVER_PROGRAM);
    EXPECT_NE(TheServer(), 0);
}

// Programs that misbehave

TEST_F(ServerProcess, ThatDiesAtItsStartIsStartedAgainAtEveryPollAndLeavesNoZombies) {
    for (const char* failure : {"dies-at-start", "crashes"}) {
        output.Clear();
        Misbehave(failure);
        StartPolling();
        EXPECT_TRUE(ComesTrue([&] { return LinesThatBegin("CreatedProcess(") >= 5; })) << failure;
        EXPECT_LE(posix_servers::Zombies(), 1) << failure;
        launcher->Stop();
        EXPECT_TRUE(ComesTrue([&] {
            launcher->IsServerRunning();
            return posix_servers::Zombies() == 0;
        })) << failure;
        launcher.reset();
    }
}

TEST_F(ServerProcess, ThatEndsByItselfComesBack) {
    Misbehave("ends-soon");
    StartPolling();
    EXPECT_TRUE(ComesTrue([&] { return LinesThatBegin("CreatedProcess(") >= 3; }));
}

TEST_F(ServerProcess, ThatWillNotEndIsEnded) {
    for (const char* failure : {"ignores-termination", "blocks-signals", "stops-itself", "spins"}) {
        Misbehave(failure);
        StartPolling();
        const pid_t server = TheServer();
        ASSERT_NE(server, 0) << failure;
        launcher->Stop();
        EXPECT_THAT(Running(), IsEmpty()) << failure;
        EXPECT_EQ(posix_servers::Zombies(), 0) << failure;
        launcher.reset();
    }
    EXPECT_EQ(LinesThatBegin("TerminateProcess(0x0)"), 4) << "only the destructors found nothing to end";
    EXPECT_EQ(LinesThatBegin("TerminateProcess("), 4);
}

TEST_F(ServerProcess, ThatHangsCountsAsRunning) {
    Misbehave("stops-itself");
    StartPolling();
    const pid_t server = TheServer();
    EXPECT_TRUE(launcher->IsServerRunning());
    launcher->Start();
    EXPECT_EQ(TheServer(), server);
    EXPECT_EQ(LinesThatBegin("Already started."), 1);
}

}  // namespace
