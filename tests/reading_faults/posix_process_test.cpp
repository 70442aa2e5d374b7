// The engine and a server in a process of its own.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <random>

#include "tests/reading_faults/faults_fixture.h"
#include "tools/engine/client.h"
#include "tools/server/program.h"

namespace {

using namespace reading_engine_test;
using namespace reading_faults;
using engine_client::Client;
using plate_reading::WidthRange;
using scripted_reader::DescriptionOf;

/// Whether a client's frame is answered with what is in it.
bool IsServedWell(Client& client, unsigned seed = 1) {
    TestPicture picture(40 + seed % 7, 30, 0, seed);
    RPLATE plates[engineRecordCount] = {};
    const auto wanted = DescriptionOf(picture.AsRead(), std::nullopt, WidthRange{1, 2});
    return client.SetRange(1, 2) && client.Recognise(&picture.image, nullptr, plates) == 2 &&
           std::string(plates[0].text) == wanted[0].text && std::string(plates[1].text) == wanted[1].text;
}

class ServerProcess : public ServerPrograms {
  protected:
    void Start() { server = servers::StartStranger(); }

    /// What the server's process ends with; -1 when it does not end in time.
    int ExitCode(servers::ProcessId process) {
        int status = 0;
        if (!ComesTrue([&] { return ::waitpid(process, &status, WNOHANG) == process; })) {
            return -1;
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    /// Runs something in a process of its own; true is what it should answer.
    static pid_t Fork(const std::function<bool()>& action) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::_exit(action() ? 0 : 1);
        }
        return child;
    }

    servers::ProcessId server = 0;
    Client client;
};

TEST_F(ServerProcess, IsWaitedForWhileItStarts) {
    const auto starting = wire::Clock::now();
    std::thread starter([this] {
        std::this_thread::sleep_for(1s);
        Start();
    });
    EXPECT_TRUE(client.SetRange(1, 2));
    EXPECT_LT(wire::Clock::now() - starting, longestCall);
    starter.join();
    EXPECT_TRUE(IsServedWell(client));
}

TEST_F(ServerProcess, EndsWellWhenItIsAskedTo) {
    for (const int signal : {SIGTERM, SIGINT}) {
        Start();
        ASSERT_TRUE(IsServedWell(client));
        const auto asked = wire::Clock::now();
        ::kill(server, signal);
        EXPECT_EQ(ExitCode(server), reading_service::exitedWell);
        EXPECT_LT(wire::Clock::now() - asked, 5s);
    }
}

TEST_F(ServerProcess, EndsWellWhenItIsAskedToBeforeItListens) {
    for (int round = 0; round < 30; ++round) {
        Start();
        std::this_thread::sleep_for(std::chrono::microseconds(100 * round));
        ::kill(server, SIGTERM);
        int status = 0;
        ASSERT_EQ(::waitpid(server, &status, 0), server);
        // Very early the signal meets a process that is not the program yet.
        EXPECT_TRUE((WIFEXITED(status) && WEXITSTATUS(status) == 0) ||
                    (WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM));
    }
}

TEST_F(ServerProcess, EndsByItselfWhenNobodyIsConnected) {
    test_support::SetEnvironment("VEXLANE_TEST_IDLE", "300");
    Start();
    EXPECT_EQ(ExitCode(server), reading_service::exitedWell);
}

TEST_F(ServerProcess, GivesUpWhenAnotherOneKeepsTheName) {
    Start();
    ASSERT_TRUE(IsServedWell(client));
    const auto started = wire::Clock::now();
    const servers::ProcessId second = servers::StartStranger();
    EXPECT_EQ(ExitCode(second), reading_service::exitedForTheName);
    EXPECT_GE(wire::Clock::now() - started, 2900ms);
    EXPECT_TRUE(IsServedWell(client));
}

TEST_F(ServerProcess, TakesTheNameOfOneThatEnds) {
    Start();
    ASSERT_TRUE(IsServedWell(client));
    const servers::ProcessId first = server;
    Start();
    std::this_thread::sleep_for(200ms);
    servers::Kill(first);
    EXPECT_TRUE(IsServedWell(client));
    EXPECT_EQ(servers::Running().count(server), 1u);
}

TEST_F(ServerProcess, ThatIsStoppedIsNoticedInTimeAndServesAgainWhenItGoesOn) {
    Start();
    ASSERT_TRUE(IsServedWell(client));
    StopProcess(server);
    bool isTaken = true;
    EXPECT_THAT(TimeOf([&] { isTaken = client.SetRange(1, 2); }),
                testing::AllOf(testing::Ge(1900ms), testing::Lt(longestCall)));
    EXPECT_FALSE(isTaken);
    TestPicture picture(20, 20);
    RPLATE plates[engineRecordCount] = {};
    EXPECT_LT(TimeOf([&] { EXPECT_EQ(client.Recognise(&picture.image, nullptr, plates), 0); }), 1s);
    // A client that is new meets a stopped server, too.
    Client second;
    EXPECT_LT(TimeOf([&] { EXPECT_FALSE(second.SetRange(1, 2)); }), longestCall);
    ::kill(server, SIGCONT);
    for (unsigned seed = 1; seed < 50; ++seed) {
        ASSERT_TRUE(IsServedWell(client, seed));
    }
}

TEST_F(ServerProcess, ThatIsStoppedInAFrameLetsItGoInTime) {
    Start();
    ASSERT_TRUE(IsServedWell(client));
    TestPicture picture(20, 20);
    picture.Tell(scripted_reader::Sleep, 30);
    std::thread stopping([this] {
        std::this_thread::sleep_for(100ms);
        StopProcess(server);
    });
    RPLATE plates[engineRecordCount] = {};
    EXPECT_THAT(TimeOf([&] { EXPECT_EQ(client.Recognise(&picture.image, nullptr, plates), 0); }),
                testing::AllOf(testing::Ge(1900ms), testing::Lt(longestCall)));
    stopping.join();
    ::kill(server, SIGCONT);
    for (unsigned seed = 1; seed < 50; ++seed) {
        ASSERT_TRUE(IsServedWell(client, seed));
    }
}

TEST_F(ServerProcess, ThatDiesInAFrameLetsItGoAtOnce) {
    for (const bool crashes : {true, false}) {
        Start();
        ASSERT_TRUE(IsServedWell(client));
        TestPicture picture(20, 20);
        picture.Tell(crashes ? scripted_reader::Crash : scripted_reader::Sleep, 150);
        std::thread killing([this, crashes] {
            std::this_thread::sleep_for(50ms);
            if (!crashes) {
                servers::Kill(server);
            }
        });
        RPLATE plates[engineRecordCount] = {};
        EXPECT_LT(TimeOf([&] { EXPECT_EQ(client.Recognise(&picture.image, nullptr, plates), 0); }), 1400ms);
        killing.join();
        ::waitpid(server, nullptr, 0);
    }
}

TEST_F(ServerProcess, ServesTwoProcessesAtOnceEachWithItsOwn) {
    Start();
    std::vector<pid_t> children;
    for (unsigned process = 0; process < 2; ++process) {
        children.push_back(Fork([process] {
            Client own;
            for (unsigned frame = 0; frame < 300; ++frame) {
                if (!IsServedWell(own, process * 1000 + frame)) {
                    return false;
                }
            }
            return true;
        }));
    }
    for (const pid_t child : children) {
        EXPECT_EQ(ExitCode(child), 0);
    }
}

TEST_F(ServerProcess, OutlivesClientsThatAreKilledInTheMiddleOfAFrame) {
    Start();
    ASSERT_TRUE(IsServedWell(client));
    const int descriptors = DescriptorsOf(server);
    std::mt19937 random(11);
    for (int round = 0; round < 40; ++round) {
        const pid_t child = Fork([] {
            Client own;
            TestPicture picture(400, 300);
            RPLATE plates[engineRecordCount] = {};
            for (std::uint8_t frame = 0;; ++frame) {
                picture.Tell(frame % 2 == 0 ? scripted_reader::Sleep : scripted_reader::Describe, 1);
                own.SetRange(1, 2);
                own.Recognise(&picture.image, nullptr, plates);
            }
            return false;
        });
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 30000));
        ::kill(child, SIGKILL);
        ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    }
    EXPECT_TRUE(IsServedWell(client));
    EXPECT_TRUE(ComesTrue([&] { return DescriptorsOf(server) == descriptors; })) << DescriptorsOf(server);
}

}  // namespace
