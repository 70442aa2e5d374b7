#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <system_error>
#include <thread>

#include "tests/support/comes_true.h"
#include "tests/support/descriptors.h"
#include "tests/support/environment.h"
#include "tests/support/raw_client.h"
#include "tools/wire/local_connection.h"

namespace {

using namespace std::chrono_literals;
using namespace wire;
using Bytes = std::vector<std::uint8_t>;
using test_support::fixedSize;
using test_support::MemoryFile;
using test_support::OpenDescriptors;
using test_support::RawClient;
using testing::ElementsAre;
using testing::Ge;
using testing::Lt;

constexpr std::uint64_t plenty = 1 << 20;
constexpr std::size_t longest = 300;

Deadline In(std::chrono::milliseconds time) {
    return Clock::now() + time;
}

std::string RandomName() {
    std::random_device random;
    return "vexlane-test-" + std::to_string(random()) + "-" + std::to_string(random());
}

class LocalConnection : public testing::Test {
  protected:
    LocalConnection() : client(Connection::Open(name)), server(listener->Accept(In(10s))) {}
    ~LocalConnection() override {
        client.reset();
        server.reset();
        listener.reset();
        EXPECT_EQ(OpenDescriptors(), before) << "a descriptor was left open";
    }

    bool Receives(const Bytes& wanted) {
        return server->Receive(message, longest, memory, plenty, In(10s)) && message == wanted;
    }

    const std::set<int> before = OpenDescriptors();
    const std::string name = RandomName();
    std::optional<Listener> listener = Listener::Open(name);
    std::optional<Connection> client;
    std::optional<Connection> server;
    Bytes message;
    std::optional<PeerMemory> memory;
};

template <class Action>
Clock::duration TimeOf(Action action) {
    const auto start = Clock::now();
    action();
    return Clock::now() - start;
}

// Names

TEST(ServerName, HoldsTheUserAndTheVariablesBeginning) {
    const std::string own = "vexlane-reading-" + std::to_string(::geteuid());
    test_support::UnsetEnvironment("VEXLANE_READING_SOCKET");
    EXPECT_EQ(ServerName(), own);
    test_support::SetEnvironment("VEXLANE_READING_SOCKET", "");
    EXPECT_EQ(ServerName(), own);
    test_support::SetEnvironment("VEXLANE_READING_SOCKET", "x");
    EXPECT_EQ(ServerName(), own + "-x");
    test_support::SetEnvironment("VEXLANE_READING_SOCKET", std::string(64, 'y') + std::string(1000, 'z'));
    EXPECT_EQ(ServerName(), own + "-" + std::string(64, 'y'));
    const std::optional<Listener> listener = Listener::Open(ServerName());
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

TEST(Names, ThatAreNoneAreRefused) {
    for (const std::string& name : {std::string(), std::string(200, 'x')}) {
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

TEST_F(LocalConnection, IsEndedFromAnotherThread) {
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

TEST_F(LocalConnection, GoesOnWaitingBehindASignal) {
    struct sigaction nothing = {};
    nothing.sa_handler = [](int) {};
    sigaction(SIGUSR1, &nothing, nullptr);
    std::atomic<bool> ended = false;
    std::thread receiver([&] {
        EXPECT_TRUE(Receives(Bytes{5}));
        EXPECT_FALSE(server->Receive(message, longest, memory, plenty, In(50ms)));
        ended = true;
    });
    std::thread accepting([&] { EXPECT_TRUE(listener->Accept(noDeadline)); });
    for (int signal = 0; signal < 20; ++signal) {
        pthread_kill(receiver.native_handle(), SIGUSR1);
        pthread_kill(accepting.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_FALSE(ended);
    EXPECT_TRUE(client->Send(Bytes{5}, nullptr, In(10s)));
    receiver.join();
    const std::optional<Connection> second = Connection::Open(name);
    accepting.join();
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

// Who is spoken to

TEST_F(LocalConnection, SpeaksToNobodyButItsOwnUser) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "takes root";
    }
    constexpr uid_t somebody = 65534;
    const pid_t child = ::fork();
    if (child == 0) {
        if (::setresuid(somebody, somebody, somebody) != 0) {
            ::_exit(2);
        }
        // It is told who listens, and the listener is told who connects.
        const int socket = ::socket(AF_UNIX, SOCK_SEQPACKET, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::copy(name.begin(), name.end(), address.sun_path + 1);
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
        const bool connects = ::connect(socket, reinterpret_cast<const sockaddr*>(&address), size) == 0;
        ::_exit(connects && !Connection::Open(name) ? 0 : 1);
    }
    EXPECT_FALSE(listener->Accept(In(300ms)));
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    const std::optional<Connection> own = Connection::Open(name);
    EXPECT_TRUE(listener->Accept(In(10s)));
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
    struct Case {
        const char* what;
        std::vector<int> files;
        bool isTaken = false;
    };
    int pipe[2] = {};
    ASSERT_EQ(::pipe2(pipe, O_CLOEXEC), 0);
    std::vector<Case> cases = {{"sealed memory", {MemoryFile(5000, fixedSize)}, true},
                               {"memory that is sealed further", {MemoryFile(5000, fixedSize | F_SEAL_WRITE)}, true},
                               {"no memory", {}, true},
                               {"unsealed memory", {MemoryFile(5000, 0)}},
                               {"memory that can shrink", {MemoryFile(5000, F_SEAL_GROW)}},
                               {"memory that can grow", {MemoryFile(5000, F_SEAL_SHRINK)}},
                               {"memory that cannot be sealed", {MemoryFile(5000, 0, false)}},
                               {"empty memory", {MemoryFile(0, fixedSize)}},
                               {"huge memory", {MemoryFile(off_t{1} << 40, fixedSize)}},
                               {"a device", {::open("/dev/zero", O_RDWR | O_CLOEXEC)}},
                               {"a file", {::open("/proc/self/exe", O_RDONLY | O_CLOEXEC)}},
                               {"a folder", {::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC)}},
                               {"a pipe", {pipe[0]}},
                               {"a socket", {::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)}}};
    for (const std::size_t count : {2u, 3u, 8u, 9u, 253u}) {
        Case several = {"several pieces", {}};
        for (std::size_t index = 0; index < count; ++index) {
            several.files.push_back(MemoryFile(5000, fixedSize));
        }
        cases.push_back(several);
    }
    for (const Case& one : cases) {
        RawClient raw(name);
        std::optional<Connection> peer = listener->Accept(In(10s));
        ASSERT_TRUE(peer && raw.Send(Bytes{1}, one.files)) << one.what;
        const std::set<int> open = OpenDescriptors();
        EXPECT_EQ(peer->Receive(message, longest, memory, plenty, In(10s)), one.isTaken) << one.what;
        EXPECT_EQ(OpenDescriptors(), open) << one.what;
        memory.reset();
    }
    for (const Case& one : cases) {
        for (const int file : one.files) {
            ::close(file);
        }
    }
    ::close(pipe[1]);
}

TEST_F(LocalConnection, CannotBeMadeToFaultByAPeerThatCutsItsMemory) {
    const int file = MemoryFile(1 << 16, fixedSize);
    RawClient raw(name);
    std::optional<Connection> peer = listener->Accept(In(10s));
    ASSERT_TRUE(peer && raw.Send(Bytes{1}, {file}));
    ASSERT_TRUE(peer->Receive(message, longest, memory, plenty, In(10s)));
    EXPECT_NE(::ftruncate(file, 0), 0);
    ::fallocate(file, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, 1 << 16);
    ::close(file);
    EXPECT_EQ(std::ranges::count(memory->Bytes(), 0), 1 << 16);
}

}  // namespace
