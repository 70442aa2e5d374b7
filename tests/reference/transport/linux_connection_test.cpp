// Cases that occur only with Linux's sockets.

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "reference/transport/linux_folders.h"
#include "tests/reference/transport/connection_fixture.h"
#include "tests/support/environment.h"
#include "tests/support/linux_descriptor_limit.h"
#include "tests/support/linux_other_user.h"

namespace {

using namespace transport_test;
using test_support::DescriptorLimit;
using test_support::OtherUserProcess;

namespace fs = std::filesystem;

TEST_F(LocalConnection, GoesOnWaitingAfterASignal) {
    struct sigaction nothing = {};
    nothing.sa_handler = [](int) {};
    sigaction(SIGUSR1, &nothing, nullptr);
    std::atomic<bool> ended = false;
    std::thread receiver([&] {
        EXPECT_EQ(Next(*server, noDeadline), Bytes{5});
        EXPECT_EQ(Next(*server, In(50ms)), Bytes());
        ended = true;
    });
    std::thread accepting([&] { EXPECT_TRUE(listener->Accept(noDeadline)); });
    for (int signal = 0; signal < 20; ++signal) {
        pthread_kill(receiver.native_handle(), SIGUSR1);
        pthread_kill(accepting.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_FALSE(ended);
    EXPECT_TRUE(client->Send(Bytes{5}, In(10s)));
    receiver.join();
    const std::optional<Connection> second = Connection::Open(name);
    accepting.join();
}

// The folder is closed to other users. If it were open, both sides still check the user of their peer.
TEST_F(LocalConnection, AcceptsOnlyItsOwnUser) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    const fs::path path = runtimeFolder.Path() / "run" / "vexlane";
    const Owned folder(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const auto at = [&folder](const std::string& socket) { return *SocketAddress::Of(folder.Get(), socket); };
    const std::string strangers = RandomName();
    const auto connectAndListen = [&] {
        const int asClient = ::socket(AF_UNIX, SOCK_SEQPACKET, 0);
        const int asServer = ::socket(AF_UNIX, SOCK_SEQPACKET, 0);
        return ::connect(asClient, at(name).Get(), at(name).Size()) == 0 &&
               ::bind(asServer, at(strangers).Get(), at(strangers).Size()) == 0 && ::listen(asServer, 10) == 0;
    };
    const auto nothing = [] { return true; };
    EXPECT_THROW(OtherUserProcess(connectAndListen, nothing), std::runtime_error)
        << "other users can access the folder";
    fs::permissions(path, fs::perms::all);
    fs::permissions(path / name, fs::perms::all);
    const OtherUserProcess otherUser(connectAndListen, nothing);
    fs::permissions(path, fs::perms::owner_all);
    EXPECT_FALSE(listener->Accept(In(300ms)));
    EXPECT_FALSE(Connection::Open(strangers));
    const std::optional<Connection> own = Connection::Open(name);
    EXPECT_TRUE(listener->Accept(In(10s)));
}

// Folders

class Folders : public testing::Test {
  protected:
    static bool CanConnect(const std::string& name) {
        std::optional<Listener> listener = Listener::Open(name);
        const std::optional<Connection> client = Connection::Open(name);
        return listener && client && listener->Accept(In(10s));
    }

    const test_support::RuntimeFolder scratch;
    const fs::path run = scratch.Path() / "run";
    const fs::path temporary = scratch.Path() / "tmp";
    const std::string own = "vexlane-" + std::to_string(::geteuid());
    const std::string name = RandomName();
};

TEST_F(Folders, ArePrivateAndEmptyAfterTheListener) {
    {
        const std::optional<Listener> listener = Listener::Open(name);
        for (const fs::path& folder : {run / "vexlane", temporary / own}) {
            EXPECT_EQ(fs::status(folder).permissions(), fs::perms::owner_all) << folder;
            EXPECT_TRUE(fs::is_socket(folder / name)) << folder;
        }
    }
    EXPECT_TRUE(fs::is_empty(run / "vexlane"));
    EXPECT_TRUE(fs::is_empty(temporary / own));
}

TEST_F(Folders, ConnectProcessesWithDifferentEnvironments) {
    const std::optional<Listener> listener = Listener::Open(name);
    test_support::UnsetEnvironment("XDG_RUNTIME_DIR");
    EXPECT_TRUE(Connection::Open(name));
    EXPECT_FALSE(Listener::Open(name));
    test_support::SetEnvironment("XDG_RUNTIME_DIR", run.string());
    fs::create_directory(scratch.Path() / "other");
    test_support::SetEnvironment("TMPDIR", (scratch.Path() / "other").string());
    EXPECT_TRUE(Connection::Open(name));
    EXPECT_FALSE(Listener::Open(name));
}

TEST_F(Folders, MayHaveLongPaths) {
    const fs::path deep = run / std::string(200, 'x') / std::string(200, 'y');
    fs::create_directories(deep);
    test_support::SetEnvironment("XDG_RUNTIME_DIR", deep.string());
    test_support::SetEnvironment("TMPDIR", deep.string());
    EXPECT_TRUE(CanConnect(std::string(79, 'z')));
    EXPECT_TRUE(fs::is_directory(deep / "vexlane"));
}

TEST_F(Folders, AreNotUsedIfOtherUsersCanChangeThem) {
    fs::permissions(run, fs::perms::all);
    EXPECT_TRUE(CanConnect(name));
    EXPECT_FALSE(fs::exists(run / "vexlane"));
    // A folder of the user's own that others can look into.
    fs::create_directory(temporary / "real");
    for (const fs::perms open : {fs::perms::others_exec, fs::perms::group_write, fs::perms::all}) {
        fs::permissions(temporary / own, fs::perms::owner_all | open);
        const std::optional<Listener> listener = Listener::Open(name);
        EXPECT_TRUE(listener && Connection::Open(name));
        EXPECT_TRUE(fs::is_empty(temporary / own));
    }
    fs::remove(temporary / own);
    fs::create_symlink("real", temporary / own);
    EXPECT_TRUE(CanConnect(name));
    EXPECT_TRUE(fs::is_empty(temporary / "real"));
}

TEST_F(Folders, CreationFailureSaysWhatToDo) {
    test_support::UnsetEnvironment("XDG_RUNTIME_DIR");
    test_support::SetEnvironment("TMPDIR", "/proc");
    EXPECT_FALSE(Connection::Open(name));
    try {
        Listener::Open(name);
        ADD_FAILURE() << "there is a folder";
    } catch (const std::system_error& error) {
        EXPECT_THAT(error.what(), testing::HasSubstr("XDG_RUNTIME_DIR"));
    }
}

TEST_F(Folders, OfAnotherUserDoNotPreventListening) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    test_support::UnsetEnvironment("XDG_RUNTIME_DIR");
    fs::create_directory(scratch.Path() / "own");
    fs::permissions(scratch.Path() / "own", fs::perms::owner_all);
    for (const test_support::Obstacle obstacle : test_support::allObstacles) {
        fs::remove_all(temporary);
        fs::create_directory(temporary);
        fs::permissions(temporary, fs::perms::all | fs::perms::sticky_bit);
        test_support::NameSquatter taker(temporary, name, obstacle);
        // Later listeners use the same folder.
        for (int round = 0; round < 3; ++round) {
            EXPECT_FALSE(Connection::Open(name));
            EXPECT_TRUE(CanConnect(name)) << static_cast<int>(obstacle);
        }
        EXPECT_TRUE(taker.End()) << "a client connected to the other user's server: " << static_cast<int>(obstacle);
        EXPECT_EQ(std::distance(fs::directory_iterator(temporary), fs::directory_iterator()), 2);
    }
    EXPECT_TRUE(fs::is_empty(scratch.Path() / "own"));
}

TEST_F(Folders, OneOfManyTakesTheNameOfAKilledListener) {
    for (int round = 0; round < 10; ++round) {
        const pid_t child = ::fork();
        if (child == 0) {
            const std::optional<Listener> listener = Listener::Open(name);
            ::raise(listener ? SIGKILL : SIGTERM);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
        EXPECT_TRUE(fs::exists(run / "vexlane" / name));
        EXPECT_FALSE(Connection::Open(name));
        std::vector<std::optional<Listener>> listeners(6);
        std::vector<std::thread> threads;
        for (std::optional<Listener>& listener : listeners) {
            threads.emplace_back([&listener, this] { listener = Listener::Open(name); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(std::ranges::count_if(listeners, [](const auto& one) { return one.has_value(); }), 1);
        EXPECT_TRUE(Connection::Open(name));
    }
}

// The listener still runs, although its lock file is gone.
TEST_F(Folders, StayWithAListenerWhoseLockWasRemoved) {
    const std::optional<Listener> listener = Listener::Open(name);
    fs::remove(run / "vexlane" / ('.' + name));
    fs::remove(temporary / own / ('.' + name));
    EXPECT_FALSE(Listener::Open(name));
    EXPECT_TRUE(Connection::Open(name));
}

TEST_F(LocalConnection, CannotBeOpenedWithoutADescriptor) {
    const DescriptorLimit none(DescriptorLimit::None());
    EXPECT_THROW(Connection::Open(name), std::system_error);
}

TEST_F(LocalConnection, ReceivesARefusalWhenItsPeerHasNoDescriptors) {
    const Bytes refusal = {1, 2, 3};
    std::optional<Connection> second = Connection::Open(name);
    std::optional<Connection> third = Connection::Open(name);
    {
        const DescriptorLimit none(DescriptorLimit::None());
        EXPECT_FALSE(listener->Accept(In(50ms), refusal));
        for (std::optional<Connection>* const refused : {&second, &third}) {
            EXPECT_EQ(Next(**refused), refusal);
            EXPECT_EQ(Next(**refused), Bytes());
        }
    }
    second = Connection::Open(name);
    EXPECT_TRUE(listener->Accept(In(10s), refusal));
}

TEST_F(LocalConnection, IgnoresPassedDescriptors) {
    const Owned folder(::open((runtimeFolder.Path() / "run" / "vexlane").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const SocketAddress address = *SocketAddress::Of(folder.Get(), name);
    const Owned socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::connect(socket.Get(), address.Get(), address.Size()), 0);
    std::optional<Connection> peer = listener->Accept(In(10s));
    std::uint8_t byte = 1;
    iovec bytes = {&byte, 1};
    union {
        cmsghdr part;
        char room[CMSG_SPACE(sizeof(int))];
    } control = {};
    control.part = {CMSG_LEN(sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
    const int own = socket.Get();
    std::memcpy(CMSG_DATA(&control.part), &own, sizeof own);
    msghdr header = {};
    header.msg_iov = &bytes;
    header.msg_iovlen = 1;
    header.msg_control = &control;
    header.msg_controllen = sizeof control;
    ASSERT_EQ(::sendmsg(socket.Get(), &header, 0), 1);
    const std::set<int> open = OpenDescriptors();
    EXPECT_EQ(Next(*peer), Bytes{1});
    EXPECT_EQ(OpenDescriptors(), open);
}

}  // namespace
