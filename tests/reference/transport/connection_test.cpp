#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>

#include "tests/reference/transport/connection_fixture.h"
#include "tests/support/environment.h"

namespace {

using namespace transport_test;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Lt;

// Names

TEST(ServerName, ContainsThePrefixOfTheVariable) {
    test_support::UnsetEnvironment("VEXLANE_READING_SOCKET");
    const std::string own = ServerName();
    test_support::SetEnvironment("VEXLANE_READING_SOCKET", "");
    EXPECT_EQ(ServerName(), own);
    test_support::SetEnvironment("VEXLANE_READING_SOCKET", "x");
    EXPECT_EQ(ServerName(), own + "-x");
    test_support::SetEnvironment("VEXLANE_READING_SOCKET", std::string(64, 'y') + std::string(1000, 'z'));
    EXPECT_EQ(ServerName(), own + "-" + std::string(64, 'y'));
    std::optional<Listener> listener = Listener::Open(ServerName());
    EXPECT_TRUE(listener && Connection::Open(ServerName()));
    test_support::SetEnvironment("VEXLANE_READING_SOCKET", "/a/../b\\c");
    EXPECT_EQ(ServerName(), own + "-_a_.._b_c");
    listener = Listener::Open(ServerName());
    EXPECT_TRUE(listener && Connection::Open(ServerName()));
    test_support::UnsetEnvironment("VEXLANE_READING_SOCKET");
}

TEST(Names, BelongToOneListenerAtATime) {
    const std::string name = RandomName();
    EXPECT_FALSE(Connection::Open(name));
    std::optional<Listener> listener = Listener::Open(name);
    ASSERT_TRUE(listener);
    EXPECT_FALSE(Listener::Open(name));
    EXPECT_TRUE(Connection::Open(name));
    listener.reset();
    EXPECT_FALSE(Connection::Open(name));
    EXPECT_TRUE(Listener::Open(name));
}

// A thread that makes no call does not notice the end of the connection, and keeps its side open.
TEST(Names, AreFreeAfterTheListenerDespiteSilentClients) {
    const std::string name = RandomName();
    std::vector<Connection> silent;
    for (int round = 0; round < 3; ++round) {
        std::optional<Listener> listener = Listener::Open(name);
        ASSERT_TRUE(listener) << round;
        for (int more = 0; more < 2; ++more) {
            std::optional<Connection> client = Connection::Open(name);
            ASSERT_TRUE(client);
            std::optional<Connection> server = listener->Accept(In(10s));
            ASSERT_TRUE(server);
            ASSERT_TRUE(client->Send(Bytes{1, 2}, In(10s)));
            EXPECT_THAT(Next(*server), ElementsAre(1, 2));
            silent.push_back(std::move(*client));
        }
    }
    for (const Connection& client : silent) {
        EXPECT_FALSE(client.IsPeerConnected());
    }
}

TEST(Names, MustBeValid) {
    for (const std::string& name : {std::string(), std::string(300, 'x')}) {
        EXPECT_FALSE(Connection::Open(name));
        EXPECT_THROW(Listener::Open(name), std::system_error);
    }
}

// Pieces

TEST_F(LocalConnection, KeepsPiecesInOrder) {
    for (std::uint8_t number = 1; number < 100; ++number) {
        ASSERT_TRUE(client->Send(Bytes(number, number), In(10s)));
    }
    for (std::uint8_t number = 1; number < 100; ++number) {
        EXPECT_EQ(Next(*server), Bytes(number, number));
    }
    ASSERT_TRUE(server->Send(Bytes{7}, In(10s)));
    EXPECT_THAT(Next(*client), ElementsAre(7));
}

TEST_F(LocalConnection, RefusesAPieceThatIsTooLongOrEmpty) {
    ASSERT_TRUE(client->Send(Bytes(maxPieceSize, 1), In(10s)));
    EXPECT_EQ(Next(*server), Bytes(maxPieceSize, 1));
    ASSERT_TRUE(client->Send(Bytes(maxPieceSize + 1, 1), In(10s)));
    EXPECT_THAT(Next(*server), IsEmpty());
    Reconnect();
    ASSERT_TRUE(client->Send({}, In(10s)));
    EXPECT_LT(TimeOf([&] { EXPECT_THAT(Next(*server), IsEmpty()); }), 5s);
}

TEST_F(LocalConnection, WaitsUntilItsDeadline) {
    for (const auto time : {0ms, 30ms}) {
        EXPECT_THAT(TimeOf([&] { EXPECT_THAT(Next(*server, In(time)), IsEmpty()); }), testing::AllOf(Ge(time), Lt(5s)));
        EXPECT_THAT(TimeOf([&] { EXPECT_FALSE(listener->Accept(In(time))); }), testing::AllOf(Ge(time), Lt(5s)));
    }
    EXPECT_THAT(Next(*server, Deadline::min()), IsEmpty());
    EXPECT_FALSE(listener->Accept(Deadline::min()));
    // The connection can still be used.
    ASSERT_TRUE(client->Send(Bytes{3}, In(10s)));
    EXPECT_THAT(Next(*server), ElementsAre(3));
}

TEST_F(LocalConnection, SendFailsAtItsDeadlineWhenThePeerReadsNothing) {
    const Bytes much(60000, 1);
    EXPECT_LT(TimeOf([&] {
                  while (client->Send(much, In(30ms))) {
                  }
              }),
              30s);
    EXPECT_TRUE(client->IsPeerConnected());
}

TEST_F(LocalConnection, DetectsThatThePeerHasClosed) {
    EXPECT_TRUE(server->IsPeerConnected());
    ASSERT_TRUE(client->Send(Bytes{1}, In(10s)));
    EXPECT_TRUE(server->IsPeerConnected());
    client.reset();
    EXPECT_FALSE(server->IsPeerConnected());
    EXPECT_THAT(Next(*server), ElementsAre(1)) << "what it sent before";
    EXPECT_LT(TimeOf([&] { EXPECT_THAT(Next(*server, noDeadline), IsEmpty()); }), 5s);
    EXPECT_LT(TimeOf([&] { EXPECT_FALSE(server->Send(Bytes{1}, noDeadline)); }), 5s) << "and no signal";
}

TEST_F(LocalConnection, DeliversWhatThePeerSentBeforeItClosed) {
    ASSERT_TRUE(client->Send(Bytes{9}, In(10s)));
    ASSERT_TRUE(server->Send(Bytes{1, 2}, In(10s)));
    server.reset();
    EXPECT_THAT(Next(*client), ElementsAre(1, 2));
    EXPECT_THAT(Next(*client), IsEmpty());
}

// Contention may make a lock in the system's libraries keep a handle. A connection that leaked one would leak one in
// every round.
TEST_F(LocalConnection, CanBeShutDownFromAnotherThread) {
    mayBeKept = test_support::keptByLocks;
    constexpr std::size_t rounds = 2 * test_support::keptByLocks + 1;
    for (std::size_t round = 0; round < rounds; ++round) {
        Reconnect();
        ASSERT_TRUE(server);
        std::atomic<bool> ended = false;
        std::thread receiver([&] {
            EXPECT_THAT(Next(*server, noDeadline), IsEmpty());
            EXPECT_THAT(Next(*server, noDeadline), IsEmpty()) << "and stays so";
            ended = true;
        });
        std::thread accepting([&] {
            EXPECT_FALSE(listener->Accept(noDeadline));
            EXPECT_FALSE(listener->Accept(noDeadline)) << "and stays so";
        });
        std::this_thread::sleep_for(20ms);
        EXPECT_FALSE(ended);
        server->Shutdown();
        listener->Shutdown();
        receiver.join();
        accepting.join();
        EXPECT_FALSE(client->IsPeerConnected());
        EXPECT_FALSE(Connection::Open(name));
    }
}

TEST_F(LocalConnection, CanBeShutDownFromAnotherThreadWhileItSends) {
    mayBeKept = test_support::keptByLocks;
    std::atomic<bool> ended = false;
    std::thread sender([&] {
        EXPECT_FALSE(client->Send(Bytes(10 << 20), noDeadline));
        ended = true;
    });
    std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(ended);
    client->Shutdown();
    sender.join();
    EXPECT_FALSE(server->IsPeerConnected());
}

TEST_F(LocalConnection, IsNotInheritedByChildProcesses) {
    ASSERT_TRUE(client->Send(Bytes{1}, In(10s)));
    ASSERT_THAT(Next(*server), ElementsAre(1));
    std::set<int> opened = OpenDescriptors();
    for (const int old : before) {
        opened.erase(old);
    }
    EXPECT_THAT(opened.size(), Ge(4u));
    EXPECT_TRUE(test_support::AreClosedInNewProcess(opened));
}

// Many pieces

Bytes RandomBytes(std::size_t size) {
    std::minstd_rand random(static_cast<unsigned>(size));
    Bytes bytes(size);
    std::ranges::generate(bytes, [&random] { return static_cast<std::uint8_t>(random() >> 8); });
    return bytes;
}

TEST_F(LocalConnection, TransfersAnyNumberOfBytes) {
    mayBeKept = test_support::keptByLocks;
    Bytes received;
    for (const std::size_t size : {std::size_t{1}, std::size_t{65535}, std::size_t{65536}, std::size_t{65537},
                                   maxPacketBytes - 1, maxPacketBytes, 7 * maxPacketBytes + 1, maxPacketBytes + 3}) {
        const Bytes sent = RandomBytes(size);
        std::thread sender([&] { EXPECT_TRUE(client->Send(sent, In(30s))); });
        EXPECT_TRUE(server->ReceiveAll(received, size, In(30s))) << size;
        sender.join();
        ASSERT_GE(received.size(), size);
        EXPECT_TRUE(std::ranges::equal(std::span(received).first(size), sent)) << size;
    }
    const std::uint8_t* const place = received.data();
    ASSERT_TRUE(client->Send(Bytes(5000), In(10s)) && server->ReceiveAll(received, 5000, In(10s)));
    EXPECT_EQ(received.data(), place) << "memory was allocated although there was enough";
}

TEST_F(LocalConnection, AllocatesOnlyForReceivedBytes) {
    Bytes received;
    ASSERT_TRUE(client->Send(Bytes(1000), In(10s)));
    EXPECT_FALSE(server->ReceiveAll(received, std::size_t{1} << 40, In(50ms)));
    EXPECT_LE(received.capacity(), 3 * maxPacketBytes);
}

TEST_F(LocalConnection, RefusesMoreBytesThanExpected) {
    Bytes received;
    ASSERT_TRUE(client->Send(Bytes(5000), In(10s)));
    ASSERT_TRUE(client->Send(Bytes(5001), In(10s)));
    EXPECT_LT(TimeOf([&] { EXPECT_FALSE(server->ReceiveAll(received, 10000, noDeadline)); }), 5s);
}

TEST_F(LocalConnection, ReceiveFailsAtItsDeadlineWhilePiecesArrive) {
    mayBeKept = test_support::keptByLocks;
    std::atomic<bool> ended = false;
    std::thread slow([&] {
        while (!ended && client->Send(Bytes(10), In(10s))) {
            std::this_thread::sleep_for(5ms);
        }
    });
    Bytes received;
    EXPECT_THAT(TimeOf([&] { EXPECT_FALSE(server->ReceiveAll(received, 1 << 20, In(200ms))); }),
                testing::AllOf(Ge(200ms), Lt(5s)));
    ended = true;
    slow.join();
}

TEST_F(LocalConnection, SendFailsAtItsDeadlineWhileThePeerReads) {
    mayBeKept = test_support::keptByLocks;
    std::atomic<bool> ended = false;
    std::thread slow([&] {
        for (Bytes room(maxPacketBytes); !ended; std::this_thread::sleep_for(50ms)) {
            server->Receive(room, Clock::now());
        }
    });
    EXPECT_THAT(TimeOf([&] { EXPECT_FALSE(client->Send(Bytes(100 << 20), In(200ms))); }),
                testing::AllOf(Ge(200ms), Lt(5s)));
    ended = true;
    slow.join();
}

TEST_F(LocalConnection, DetectsAtOnceThatThePeerClosesDuringATransfer) {
    mayBeKept = test_support::keptByLocks;
    Bytes received;
    std::thread going([this] {
        EXPECT_TRUE(client->Send(Bytes(100000), In(10s)));
        client.reset();
    });
    EXPECT_LT(TimeOf([&] { EXPECT_FALSE(server->ReceiveAll(received, 200000, noDeadline)); }), 5s);
    going.join();
    Reconnect();
    std::thread leaving([this] {
        Bytes some;
        EXPECT_TRUE(server->ReceiveAll(some, maxPacketBytes, In(10s)));
        server.reset();
    });
    EXPECT_LT(TimeOf([&] { EXPECT_FALSE(client->Send(Bytes(10 << 20), noDeadline)); }), 5s);
    leaving.join();
}

}  // namespace
