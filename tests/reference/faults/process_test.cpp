// The engine and a server in a separate process.

#include <thread>

#include "tests/reference/faults/process_fixture.h"

namespace {

using namespace reading_faults;

TEST_F(ServerProcess, ClientWaitsWhileItStarts) {
    const auto starting = transport::Clock::now();
    std::thread starter([this] {
        std::this_thread::sleep_for(1s);
        Start();
    });
    EXPECT_TRUE(client.SetRange(1, 2));
    EXPECT_LT(transport::Clock::now() - starting, maxCallTime);
    starter.join();
    EXPECT_TRUE(IsServedCorrectly(client));
}

TEST_F(ServerProcess, ExitsWithoutConnections) {
    test_support::SetEnvironment("VEXLANE_TEST_IDLE", "300");
    Start();
    EXPECT_EQ(server->Wait().status, reading_service::exitSuccess);
}

TEST_F(ServerProcess, ExitsWhenAnotherServerHasTheName) {
    Start();
    ASSERT_TRUE(IsServedCorrectly(client));
    const auto started = transport::Clock::now();
    EXPECT_EQ(servers::StartForeignServer()->Wait().status, reading_service::exitNameTaken);
    EXPECT_GE(transport::Clock::now() - started, 2900ms);
    EXPECT_TRUE(IsServedCorrectly(client));
}

TEST_F(ServerProcess, TakesTheNameOfAServerThatExits) {
    Start();
    ASSERT_TRUE(IsServedCorrectly(client));
    const auto first = std::move(server);
    Start();
    std::this_thread::sleep_for(200ms);
    servers::Kill(first->Id());
    EXPECT_TRUE(IsServedCorrectly(client));
    EXPECT_EQ(servers::Running().count(server->Id()), 1u);
}

TEST_F(ServerProcess, StoppedServerIsDetectedAndServesAgainAfterResume) {
    Start();
    ASSERT_TRUE(IsServedCorrectly(client));
    servers::Suspend(server->Id());
    bool isTaken = true;
    EXPECT_THAT(TimeOf([&] { isTaken = client.SetRange(1, 2); }),
                testing::AllOf(testing::Ge(1900ms), testing::Lt(maxCallTime)));
    EXPECT_FALSE(isTaken);
    TestPicture picture(20, 20);
    RPLATE plates[engineRecordCount] = {};
    EXPECT_LT(TimeOf([&] { EXPECT_EQ(client.Recognise(&picture.image, nullptr, plates), 0); }), 1s);
    // A new client also gets no response from a stopped server.
    Client second;
    EXPECT_LT(TimeOf([&] { EXPECT_FALSE(second.SetRange(1, 2)); }), maxCallTime);
    servers::Resume(server->Id());
    for (unsigned seed = 1; seed < 50; ++seed) {
        ASSERT_TRUE(IsServedCorrectly(client, seed));
    }
}

TEST_F(ServerProcess, StopDuringAFrameEndsItAtItsTimeout) {
    Start();
    ASSERT_TRUE(IsServedCorrectly(client));
    TestPicture picture(20, 20);
    picture.SetCommand(scripted_reader::Sleep, 30);
    std::thread stopping([this] {
        std::this_thread::sleep_for(100ms);
        servers::Suspend(server->Id());
    });
    RPLATE plates[engineRecordCount] = {};
    EXPECT_THAT(TimeOf([&] { EXPECT_EQ(client.Recognise(&picture.image, nullptr, plates), 0); }),
                testing::AllOf(testing::Ge(1900ms), testing::Lt(maxCallTime)));
    stopping.join();
    servers::Resume(server->Id());
    for (unsigned seed = 1; seed < 50; ++seed) {
        ASSERT_TRUE(IsServedCorrectly(client, seed));
    }
}

// The connection's buffer is smaller than such a picture, so that the client is still sending.
TEST_F(ServerProcess, StopDuringATransferEndsItAtItsTimeoutOrDeath) {
    TestPicture picture(1920, 1080);
    RPLATE plates[engineRecordCount] = {};
    for (const bool dies : {false, true}) {
        Start();
        ASSERT_TRUE(IsServedCorrectly(client));
        servers::Suspend(server->Id());
        std::thread killing([this, dies] {
            std::this_thread::sleep_for(200ms);
            if (dies) {
                servers::Kill(server->Id());
            }
        });
        const auto time = TimeOf([&] { EXPECT_EQ(client.Recognise(&picture.image, nullptr, plates), 0); });
        killing.join();
        EXPECT_THAT(time, dies ? testing::AllOf(testing::Ge(190ms), testing::Lt(1400ms))
                               : testing::AllOf(testing::Ge(1900ms), testing::Lt(maxCallTime)));
        servers::KillAll();
    }
}

TEST_F(ServerProcess, DeathDuringAFrameEndsItAtOnce) {
    for (const bool crashes : {true, false}) {
        Start();
        ASSERT_TRUE(IsServedCorrectly(client));
        TestPicture picture(20, 20);
        picture.SetCommand(crashes ? scripted_reader::Crash : scripted_reader::Sleep, 150);
        std::thread killing([this, crashes] {
            std::this_thread::sleep_for(50ms);
            if (!crashes) {
                servers::Kill(server->Id());
            }
        });
        RPLATE plates[engineRecordCount] = {};
        EXPECT_LT(TimeOf([&] { EXPECT_EQ(client.Recognise(&picture.image, nullptr, plates), 0); }), 1400ms);
        killing.join();
        server->Wait();
    }
}

}  // namespace
