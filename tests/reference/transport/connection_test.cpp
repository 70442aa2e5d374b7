#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>

#include "tests/reference/transport/connection_fixture.h"
#include "tests/support/environment.h"
#include "tests/support/raw_client.h"

namespace {

using namespace transport_test;
using testing::ElementsAre;
using testing::Ge;
using testing::Lt;

// Names

TEST(ServerName, HoldsTheVariablesBeginning) {
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

TEST(Names, BelongToOneListenerAtATimeAndGoWithIt) {
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

// A thread that does not call notices nothing, and keeps its side open for as long as it likes.
TEST(Names, AreFreeAgainWhileClientsOfAFormerListenerSayNothing) {
    const std::string name = RandomName();
    std::vector<Connection> silent;
    Bytes message;
    std::optional<PeerMemory> memory;
    for (int round = 0; round < 3; ++round) {
        std::optional<Listener> listener = Listener::Open(name);
        ASSERT_TRUE(listener) << round;
        for (int more = 0; more < 2; ++more) {
            std::optional<Connection> client = Connection::Open(name);
            ASSERT_TRUE(client);
            std::optional<Connection> server = listener->Accept(In(10s));
            ASSERT_TRUE(server);
            ASSERT_TRUE(client->Send(Bytes{1, 2}, nullptr, In(10s)));
            ASSERT_TRUE(server->Receive(message, longest, memory, plenty, In(10s)));
            EXPECT_THAT(message, ElementsAre(1, 2));
            silent.push_back(std::move(*client));
        }
    }
    for (const Connection& client : silent) {
        EXPECT_FALSE(client.PeerIsThere());
    }
}

TEST(Names, ThatAreNoneAreRefused) {
    for (const std::string& name : {std::string(), std::string(300, 'x')}) {
        EXPECT_FALSE(Connection::Open(name));
        EXPECT_THROW(Listener::Open(name), std::system_error);
    }
}

// Messages

TEST_F(LocalConnection, KeepsMessagesWholeAndInOrder) {
    for (std::uint8_t number = 1; number < 100; ++number) {
        ASSERT_TRUE(client->Send(Bytes(number, number), nullptr, In(10s)));
    }
    for (std::uint8_t number = 1; number < 100; ++number) {
        EXPECT_TRUE(Receives(Bytes(number, number)));
        EXPECT_FALSE(memory);
    }
    ASSERT_TRUE(server->Send(Bytes{7}, nullptr, In(10s)));
    EXPECT_TRUE(client->Receive(message, longest, memory, plenty, In(10s)));
    EXPECT_THAT(message, ElementsAre(7));
}

TEST_F(LocalConnection, RefusesAMessageThatIsTooLongOrEmpty) {
    ASSERT_TRUE(client->Send(Bytes(longest, 1), nullptr, In(10s)));
    EXPECT_TRUE(Receives(Bytes(longest, 1)));
    ASSERT_TRUE(client->Send(Bytes(longest + 1, 1), nullptr, In(10s)));
    EXPECT_FALSE(server->Receive(message, longest, memory, plenty, In(10s)));
    client->Send({}, nullptr, In(10s));
    EXPECT_FALSE(server->Receive(message, longest, memory, plenty, In(10s)));
}

TEST_F(LocalConnection, WaitsUntilItsDeadline) {
    for (const auto time : {0ms, 30ms}) {
        EXPECT_THAT(TimeOf([&] { EXPECT_FALSE(server->Receive(message, longest, memory, plenty, In(time))); }),
                    testing::AllOf(Ge(time), Lt(5s)));
        EXPECT_THAT(TimeOf([&] { EXPECT_FALSE(listener->Accept(In(time))); }), testing::AllOf(Ge(time), Lt(5s)));
    }
    EXPECT_FALSE(server->Receive(message, longest, memory, plenty, Deadline::min()));
    EXPECT_FALSE(listener->Accept(Deadline::min()));
}

TEST_F(LocalConnection, EndsSendingAtItsDeadlineWhenThePeerTakesNothing) {
    const Bytes much(60000, 1);
    EXPECT_LT(TimeOf([&] {
                  while (client->Send(much, nullptr, In(30ms))) {
                  }
              }),
              30s);
    EXPECT_TRUE(client->PeerIsThere());
}

TEST_F(LocalConnection, SeesThatThePeerHasGone) {
    EXPECT_TRUE(server->PeerIsThere());
    ASSERT_TRUE(client->Send(Bytes{1}, nullptr, In(10s)));
    EXPECT_TRUE(server->PeerIsThere());
    client.reset();
    EXPECT_FALSE(server->PeerIsThere());
    EXPECT_TRUE(Receives(Bytes{1})) << "what it said before";
    EXPECT_LT(TimeOf([&] { EXPECT_FALSE(server->Receive(message, longest, memory, plenty, noDeadline)); }), 5s);
    EXPECT_LT(TimeOf([&] { EXPECT_FALSE(server->Send(Bytes{1}, nullptr, noDeadline)); }), 5s) << "and no signal";
}

TEST_F(LocalConnection, TellsWhatItsPeerSaidBeforeItWentWithoutListening) {
    ASSERT_TRUE(client->Send(Bytes{9}, nullptr, In(10s)));
    ASSERT_TRUE(server->Send(Bytes{1, 2}, nullptr, In(10s)));
    server.reset();
    EXPECT_TRUE(client->Receive(message, longest, memory, plenty, In(10s)));
    EXPECT_EQ(message, (Bytes{1, 2}));
    EXPECT_FALSE(client->Receive(message, longest, memory, plenty, In(10s)));
}

// Threads that meet may make a lock of the system's libraries keep a handle. A connection that kept one would keep one
// in every round.
TEST_F(LocalConnection, IsEndedFromAnotherThread) {
    mayBeKept = test_support::keptByLocks;
    constexpr std::size_t rounds = 2 * test_support::keptByLocks + 1;
    for (std::size_t round = 0; round < rounds; ++round) {
        Reconnect();
        ASSERT_TRUE(server);
        std::atomic<bool> ended = false;
        std::thread receiver([&] {
            EXPECT_FALSE(server->Receive(message, longest, memory, plenty, noDeadline));
            EXPECT_FALSE(server->Receive(message, longest, memory, plenty, noDeadline)) << "and stays so";
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
        EXPECT_FALSE(client->PeerIsThere());
        EXPECT_FALSE(Connection::Open(name));
    }
}

TEST_F(LocalConnection, LeavesNothingToAProgramThatIsStarted) {
    const SharedMemory own(5000);
    ASSERT_TRUE(client->Send(Bytes{1}, &own, In(10s)));
    ASSERT_TRUE(Receives(Bytes{1}));
    std::set<int> opened = OpenDescriptors();
    for (const int old : before) {
        opened.erase(old);
    }
    EXPECT_THAT(opened.size(), Ge(4u));
    EXPECT_TRUE(test_support::StayBehind(opened));
}

// Memory

TEST_F(LocalConnection, HandsMemoryOver) {
    std::optional<SharedMemory> own(10000);
    std::fill(own->Bytes().begin(), own->Bytes().end(), 3);
    ASSERT_TRUE(client->Send(Bytes{1}, &*own, In(10s)));
    ASSERT_TRUE(Receives(Bytes{1}));
    ASSERT_TRUE(memory);
    EXPECT_EQ(memory->Bytes().size(), 10000u);
    EXPECT_TRUE(std::ranges::all_of(memory->Bytes(), [](std::uint8_t byte) { return byte == 3; }));
    own->Bytes()[9999] = 4;
    EXPECT_EQ(memory->Bytes()[9999], 4) << "both see the same";
    own.reset();
    EXPECT_EQ(memory->Bytes()[9999], 4) << "it lives on";
}

TEST_F(LocalConnection, TakesBackWhatWasHandedOverBefore) {
    const SharedMemory own(10000);
    ASSERT_TRUE(client->Send(Bytes{1}, &own, In(10s)));
    ASSERT_TRUE(client->Send(Bytes{2}, nullptr, In(10s)));
    ASSERT_TRUE(Receives(Bytes{1}));
    const int mappings = test_support::Mappings();
    ASSERT_TRUE(Receives(Bytes{2}));
    EXPECT_FALSE(memory);
    EXPECT_LT(test_support::Mappings(), mappings);
}

TEST_F(LocalConnection, RefusesMemoryThatIsMoreThanIsTaken) {
    const SharedMemory own(10001);
    ASSERT_TRUE(client->Send(Bytes{1}, &own, In(10s)));
    EXPECT_FALSE(server->Receive(message, longest, memory, 10000, In(10s)));
    EXPECT_FALSE(memory);
}

TEST_F(LocalConnection, RefusesWhatIsNoMemoryOfAFixedSizeAndClosesIt) {
    const test_support::OwnPiece exact = test_support::MakeMemory(5000);
    const auto expect = [&](bool isTaken, const char* what, const std::vector<test_support::Piece>& pieces) {
        test_support::RawClient raw(name);
        std::optional<Connection> peer = listener->Accept(In(10s));
        ASSERT_TRUE(peer && raw.Send(Bytes{1}, pieces)) << what;
        const std::set<int> open = OpenDescriptors();
        EXPECT_EQ(peer->Receive(message, longest, memory, plenty, In(10s)), isTaken) << what;
        EXPECT_EQ(memory.has_value(), isTaken && !pieces.empty()) << what;
        memory.reset();
        EXPECT_EQ(OpenDescriptors(), open) << what;
    };
    expect(true, "memory", {exact});
    expect(true, "no memory", {});
    for (const test_support::WrongPiece& wrong : test_support::MakeWrongPieces()) {
        expect(false, wrong.what, {wrong.piece});
    }
}

}  // namespace
