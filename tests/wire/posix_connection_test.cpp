// What only Linux's sockets can meet.

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "tests/support/environment.h"
#include "tests/support/posix_descriptor_limit.h"
#include "tests/support/raw_client.h"
#include "tests/wire/connection_fixture.h"

namespace {

using namespace wire_test;
using test_support::DescriptorLimit;
using test_support::RawClient;

TEST(ServerName, HoldsTheUser) {
    test_support::UnsetEnvironment("VEXLANE_READING_SOCKET");
    EXPECT_EQ(ServerName(), "vexlane-reading-" + std::to_string(::geteuid()));
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

TEST_F(LocalConnection, CannotBeOpenedWithoutADescriptor) {
    const DescriptorLimit none(DescriptorLimit::None());
    EXPECT_THROW(Connection::Open(name), std::system_error);
}

TEST_F(LocalConnection, IsRefusedWithAWordWhereItsPeerHasNoDescriptorLeft) {
    const Bytes refusal = {1, 2, 3};
    std::optional<Connection> second = Connection::Open(name);
    std::optional<Connection> third = Connection::Open(name);
    {
        const DescriptorLimit none(DescriptorLimit::None());
        EXPECT_FALSE(listener->Accept(In(50ms), refusal));
        for (std::optional<Connection>* const refused : {&second, &third}) {
            EXPECT_TRUE((*refused)->Receive(message, longest, memory, plenty, In(10s)));
            EXPECT_EQ(message, refusal);
            EXPECT_FALSE((*refused)->Receive(message, longest, memory, plenty, In(10s)));
        }
    }
    second = Connection::Open(name);
    EXPECT_TRUE(listener->Accept(In(10s), refusal));
}

TEST_F(LocalConnection, RefusesSeveralPiecesOfMemoryAndClosesThem) {
    const test_support::OwnPiece exact = test_support::MakeMemory(5000);
    for (const std::size_t count : {2u, 3u, 8u, 9u, 253u}) {
        RawClient raw(name);
        std::optional<Connection> peer = listener->Accept(In(10s));
        ASSERT_TRUE(peer && raw.Send(Bytes{1}, std::vector<test_support::Piece>(count, exact)));
        const std::set<int> open = OpenDescriptors();
        EXPECT_FALSE(peer->Receive(message, longest, memory, plenty, In(10s))) << count;
        EXPECT_EQ(OpenDescriptors(), open) << count;
    }
}

TEST_F(LocalConnection, CannotBeMadeToFaultByAPeerThatCutsItsMemory) {
    std::optional<test_support::OwnPiece> piece(test_support::MakeMemory(1 << 16));
    const int file = static_cast<int>(*piece);
    RawClient raw(name);
    std::optional<Connection> peer = listener->Accept(In(10s));
    ASSERT_TRUE(peer && raw.Send(Bytes{1}, {*piece}));
    ASSERT_TRUE(peer->Receive(message, longest, memory, plenty, In(10s)));
    EXPECT_NE(::ftruncate(file, 0), 0);
    ::fallocate(file, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, 1 << 16);
    piece.reset();
    EXPECT_EQ(std::ranges::count(memory->Bytes(), 0), 1 << 16);
}

}  // namespace
