// A stream through the whole library while its server is killed, stopped, blocked or replaced.

#include <cstdlib>
#include <random>

#include "tests/reference/faults/faults_fixture.h"
#include "tests/reference/faults/stream.h"
#include "tests/support/descriptors.h"

namespace {

using namespace reading_faults;
using reading_engine_test::maxCallTime;
using test_support::ChildProcess;

/// The most time for one frame: the range, the frame, and ending a server and starting another one.
constexpr auto maxFrameTime = 2 * maxCallTime + 1000ms;

/// The most time from the first refused range until there are plates again.
constexpr auto maxOutage = 2000ms;

/// Handles that the library may keep open for each server that it ends: on Windows it does not close the handles of
/// servers that it ended or searched for. It searches a few times between two restarts.
#ifdef _WIN32
constexpr std::size_t keptOfAServer = 8;
#else
constexpr std::size_t keptOfAServer = 0;
#endif

class Faults : public ServerPrograms {
  protected:
    Faults() { servers::Place(VEXLANE_STREAM_SERVER); }

    /// Reads the process id that the other host prints first.
    static servers::ProcessId ReadProcessId(ChildProcess& host) {
        host.WaitForOutput("\n");
        return std::stoi(host.Output());
    }

    /// Plays frames until there are plates.
    void PlayUntilPlates(Stream& stream) {
        ASSERT_TRUE(WaitUntil([&] { return PlayOne(stream).plates == 2; })) << State(stream);
    }

    static std::string State(const Stream& stream) { return DescribeServers() + '\n' + stream.LastLines(); }

    static Played PlayOne(Stream& stream) {
        const Played played = stream.Play();
        EXPECT_EQ(played.status, 0);
        EXPECT_LT(played.time, maxFrameTime);
        EXPECT_THAT(played.plates, testing::AnyOf(0, 2));
        return played;
    }

    /// Plays frames until a server other than `former` finds plates, which must be soon after the first refused range.
    void ExpectRecovery(Stream& stream, servers::ProcessId former) {
        transport::Deadline refused = transport::noDeadline;
        const bool isBack = WaitUntil([&] {
            const Played played = PlayOne(stream);
            if (played.restarts && refused == transport::noDeadline) {
                refused = transport::Clock::now();
            }
            return played.plates == 2 && TheServer() != former && TheServer() != 0;
        });
        ASSERT_TRUE(isBack) << "no plates after a restart; " << State(stream);
        if (refused != transport::noDeadline) {
            EXPECT_LT(transport::Clock::now() - refused, maxOutage) << State(stream);
            maxRecoveryTime = std::max<transport::Clock::duration>(maxRecoveryTime, transport::Clock::now() - refused);
            ++refusals;
        }
    }

    /// Kills the server at random moments of the stream, and waits for the next one each time.
    void KillServers(Stream& stream, int rounds) {
        std::mt19937 random(20240203);
        const std::size_t descriptors = test_support::OpenDescriptors().size();
        int mappings = 0;
        long memory = 0;
        for (int round = 0; round < rounds; ++round) {
            const servers::ProcessId server = TheServer();
            ASSERT_NE(server, 0);
            const auto moment = std::chrono::microseconds(random() % 40000);
            std::thread killing([server, moment] {
                std::this_thread::sleep_for(moment);
                servers::Kill(server);
            });
            ExpectRecovery(stream, server);
            killing.join();
            if (round == 0) {
                mappings = test_support::Mappings();
                memory = test_support::ResidentKilobytes();
            }
        }
        const std::size_t opened = test_support::OpenDescriptors().size();
        EXPECT_LE(opened, descriptors + test_support::keptByLocks + keptOfAServer * static_cast<std::size_t>(rounds));
        std::printf("%d kills, %d descriptors more, %ld KiB more\n", rounds,
                    static_cast<int>(opened) - static_cast<int>(descriptors),
                    test_support::ResidentKilobytes() - memory);
        EXPECT_LT(test_support::Mappings(), mappings + 40);
        EXPECT_LT(test_support::ResidentKilobytes(), memory + 16 * 1024);
        EXPECT_EQ(servers::Zombies(), 0);
        EXPECT_EQ(servers::Running().size(), 1u);
    }

    void ExpectNothingLeft(Stream& stream) {
        EXPECT_EQ(stream.End(), 0) << "buffers were not released";
        EXPECT_TRUE(servers::Running().empty());
        EXPECT_EQ(servers::Zombies(), 0);
    }

    int refusals = 0;
    transport::Clock::duration maxRecoveryTime{};
};

// The restart is due to the refused range or, while the library still polls, to a poll.
TEST_F(Faults, KilledServerIsRestartedWithoutLeaks) {
    Stream stream;
    PlayUntilPlates(stream);
    KillServers(stream, 3);
    ExpectNothingLeft(stream);
}

// VEXLANE_TEST_KILLS sets the number of kills.
TEST_F(Faults, RefusedRangeRestartsAKilledServerAfterPollingHasEnded) {
    Stream stream;
    PlayUntilPlates(stream);
    // The library ends a running server that refuses a range, and stops polling.
    const servers::ProcessId first = TheServer();
    ASSERT_NE(first, 0);
    servers::Suspend(first);
    ExpectRecovery(stream, first);
    refusals = 0;
    const char* const wanted = std::getenv("VEXLANE_TEST_KILLS");
    const int rounds = wanted == nullptr ? 6 : std::atoi(wanted);
    KillServers(stream, rounds);
    EXPECT_EQ(refusals, rounds);
    ExpectNothingLeft(stream);
    std::printf("%d kills, %d refused ranges, plates at most %d ms after one\n", rounds, refusals,
                static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(maxRecoveryTime).count()));
}

TEST_F(Faults, StoppedServerIsReplaced) {
    Stream stream;
    for (int round = 0; round < 2; ++round) {
        PlayUntilPlates(stream);
        const servers::ProcessId server = TheServer();
        ASSERT_NE(server, 0);
        servers::Suspend(server);
        ExpectRecovery(stream, server);
        EXPECT_TRUE(servers::IsGone(server));
    }
    EXPECT_EQ(refusals, 2);
    EXPECT_EQ(servers::Zombies(), 0);
}

// A host with more threads than the server accepts connections once ended the others' server every two seconds.
TEST_F(Faults, BusyServerIsNotRestarted) {
    Stream stream;
    // On a thread that then closes its connection.
    reading_engine_test::RunOnNewThread([&] { PlayUntilPlates(stream); });
    const servers::ProcessId server = TheServer();
    std::vector<reading_engine_test::GreetingClient> others;
    ASSERT_TRUE(WaitUntil([&others] {
        others.emplace_back();
        return others.back().response == reading_engine_test::BusyMessage();
    }));
    for (int frame = 0; frame < 5; ++frame) {
        const Played played = PlayOne(stream);
        EXPECT_EQ(played.plates, 0);
        EXPECT_FALSE(played.restarts);
    }
    others.clear();
    PlayUntilPlates(stream);
    EXPECT_EQ(TheServer(), server) << State(stream);
}

TEST_F(Faults, ServerThatSendsGarbageIsReplaced) {
    Stream stream;
    PlayUntilPlates(stream);
    const servers::ProcessId server = TheServer();
    servers::Place(VEXLANE_GARBAGE_SERVER);
    servers::Kill(server);
    int refused = 0;
    for (int frame = 0; frame < 4; ++frame) {
        const Played played = PlayOne(stream);
        EXPECT_NE(played.plates, 2) << "from garbage";
        refused += played.restarts ? 1 : 0;
    }
    EXPECT_GE(refused, 2);
    const servers::ProcessId garbage = TheServer();
    EXPECT_NE(garbage, 0);
    servers::Place(VEXLANE_STREAM_SERVER);
    ExpectRecovery(stream, garbage);
    EXPECT_EQ(servers::Zombies(), 0);
}

TEST_F(Faults, MissingServerIsStartedWhenItAppears) {
    Stream stream;
    PlayUntilPlates(stream);
    const servers::ProcessId server = TheServer();
    servers::Remove();
    servers::Kill(server);
    for (int frame = 0; frame < 2; ++frame) {
        EXPECT_NE(PlayOne(stream).plates, 2);
    }
    servers::Place(VEXLANE_STREAM_SERVER);
    ExpectRecovery(stream, server);
}

// All detectors share one server: creating a detector restarts it, destroying one ends it.
TEST_F(Faults, DetectorRecoversWhenAnotherIsCreatedOrDestroyed) {
    Stream stream;
    PlayUntilPlates(stream);
    const servers::ProcessId first = TheServer();
    stream.AddNeighbour();
    EXPECT_TRUE(servers::IsGone(first));
    ExpectRecovery(stream, first);
    const servers::ProcessId second = TheServer();
    stream.DestroyNeighbour();
    EXPECT_TRUE(servers::IsGone(second));
    ExpectRecovery(stream, second);
    ExpectNothingLeft(stream);
}

TEST_F(Faults, TwoHostsShareOneServerAndTheSecondOutlivesTheFirst) {
    auto stream = std::make_unique<Stream>();
    PlayUntilPlates(*stream);
    const servers::ProcessId server = TheServer();
    ASSERT_NE(server, 0);
    const std::filesystem::path mayEnd = servers::OwnFolder() / "second-host-may-end";
    std::filesystem::remove(mayEnd);
    ChildProcess second({.program = servers::OwnFolder() / VEXLANE_READING_HOST, .arguments = {mayEnd.string()}});
    EXPECT_EQ(ReadProcessId(second), 1) << "it started another server";
    // The first readings need confirmation by the next frames.
    for (int frame = 0; frame < 3; ++frame) {
        PlayOne(*stream);
    }
    for (int frame = 0; frame < 40; ++frame) {
        ASSERT_EQ(PlayOne(*stream).plates, 2);
    }
    EXPECT_EQ(TheServer(), server);
    stream.reset();
    EXPECT_TRUE(servers::IsGone(server));
    std::ofstream(mayEnd) << "now";
    const test_support::Finished end = second.Wait();
    std::filesystem::remove(mayEnd);
    EXPECT_EQ(end.status, 0) << "it found no plates: " << end.errors;
}

// A test that met such a server once used 0 as the id of its own server, and stopped the whole process group.
TEST_F(Faults, ServerOfAnotherProcessFailsATestAtItsStart) {
    servers::Place(VEXLANE_TEST_SERVER);
    test_support::SetEnvironment("VEXLANE_TEST_IDLE", "500");
    servers::ProcessId server = 0;
    {
        ChildProcess host({.program = servers::OwnFolder() / VEXLANE_READING_HOST, .arguments = {"never"}});
        server = ReadProcessId(host);
        ASSERT_GT(server, 1);
        EXPECT_EQ(TheServer(), 0);
        EXPECT_THAT([] { servers::Place(VEXLANE_TEST_SERVER); },
                    testing::ThrowsMessage<std::runtime_error>(
                        testing::HasSubstr("process " + std::to_string(server) + " has the name plate-Server.exe")));
    }
    EXPECT_TRUE(WaitUntil([server] { return servers::IsGone(server); }));
    EXPECT_NO_THROW(servers::Place(VEXLANE_TEST_SERVER));
}

TEST_F(Faults, ServerExitsWhenItsHostIsKilled) {
    servers::Place(VEXLANE_TEST_SERVER);
    test_support::SetEnvironment("VEXLANE_TEST_IDLE", "500");
    servers::ProcessId server = 0;
    {
        ChildProcess host({.program = servers::OwnFolder() / VEXLANE_READING_HOST, .arguments = {"never"}});
        server = ReadProcessId(host);
        ASSERT_GT(server, 1);
        ASSERT_FALSE(servers::IsGone(server));
    }
    EXPECT_TRUE(WaitUntil([server] { return servers::IsGone(server); }));
}

}  // namespace
