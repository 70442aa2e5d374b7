// Server process tests that only Linux can run: signals, fork, users, descriptor limits.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <system_error>
#include <thread>

#include "platform/linux/send_signal.h"
#include "tests/reference/faults/process_fixture.h"
#include "tests/support/linux_descriptor_limit.h"
#include "tests/support/linux_other_user.h"

namespace {

using namespace reading_faults;
using test_support::DescriptorLimit;

/// Runs an action in a forked process, which exits with 0 if the action returns true.
pid_t Fork(const std::function<bool()>& action) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(action() ? 0 : 1);
    }
    return child;
}

// Runs in a separate process group: a stopped group would otherwise include the test runner.
TEST(ProcessControl, SignalsOneProcessAndNeverAGroup) {
    const pid_t group = Fork([] {
        ::setpgid(0, 0);
        for (const servers::ProcessId invalid : {0, -1, -::getpid()}) {
            for (const auto action : {&servers::Suspend, &servers::Resume, &servers::Kill}) {
                try {
                    action(invalid);
                    return false;
                } catch (const std::runtime_error&) {
                    continue;
                }
            }
        }
        return true;
    });
    int status = 0;
    ASSERT_EQ(::waitpid(group, &status, WUNTRACED), group);
    if (WIFSTOPPED(status)) {
        ASSERT_EQ(platform::SendSignal(group, SIGKILL), 0);
        ::waitpid(group, nullptr, 0);
    }
    EXPECT_EQ(status, 0);
}

TEST_F(ServerProcess, ExitsNormallyOnTermination) {
    for (const int signal : {SIGTERM, SIGINT}) {
        Start();
        ASSERT_TRUE(IsServedCorrectly(client));
        const auto asked = transport::Clock::now();
        ASSERT_EQ(platform::SendSignal(server->Id(), signal), 0);
        EXPECT_EQ(server->Wait().status, reading_service::exitSuccess);
        EXPECT_LT(transport::Clock::now() - asked, 5s);
    }
}

TEST_F(ServerProcess, ExitsNormallyOnTerminationBeforeItListens) {
    for (int round = 0; round < 30; ++round) {
        Start();
        std::this_thread::sleep_for(std::chrono::microseconds(100 * round));
        ASSERT_EQ(platform::SendSignal(server->Id(), SIGTERM), 0);
        const test_support::Finished end = server->Wait();
        // A very early signal arrives before the process executes the program.
        EXPECT_TRUE(end.status == 0 || end.signal == SIGTERM);
    }
}

TEST_F(ServerProcess, ServesTwoProcessesAtTheSameTime) {
    Start();
    std::vector<pid_t> children;
    for (unsigned process = 0; process < 2; ++process) {
        children.push_back(Fork([process] {
            Client own;
            for (unsigned frame = 0; frame < 300; ++frame) {
                if (!IsServedCorrectly(own, process * 1000 + frame)) {
                    return false;
                }
            }
            return true;
        }));
    }
    for (const pid_t child : children) {
        int status = -1;
        EXPECT_TRUE(WaitUntil([&] { return ::waitpid(child, &status, WNOHANG) == child; }));
        EXPECT_EQ(status, 0);
    }
}

TEST_F(ServerProcess, SurvivesClientsThatAreKilledDuringAFrame) {
    Start();
    ASSERT_TRUE(IsServedCorrectly(client));
    const int descriptors = DescriptorsOf(server->Id());
    std::mt19937 random(11);
    for (int round = 0; round < 40; ++round) {
        const pid_t child = Fork([] {
            Client own;
            TestPicture picture(1280, 720);
            RPLATE plates[engineRecordCount] = {};
            for (std::uint8_t frame = 0;; ++frame) {
                picture.SetCommand(frame % 2 == 0 ? scripted_reader::Sleep : scripted_reader::Describe, 1);
                own.SetRange(1, 2);
                own.Recognise(&picture.image, nullptr, plates);
            }
            return false;
        });
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 30000));
        ASSERT_EQ(platform::SendSignal(child, SIGKILL), 0);
        ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    }
    EXPECT_TRUE(IsServedCorrectly(client));
    EXPECT_TRUE(WaitUntil([&] { return DescriptorsOf(server->Id()) == descriptors; })) << DescriptorsOf(server->Id());
}

TEST_F(ServerProcess, ServesItsUserWhenAnotherUserOwnsTheNames) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    const test_support::RuntimeFolder scratch;
    test_support::UnsetEnvironment("XDG_RUNTIME_DIR");
    const std::filesystem::path temporary = scratch.Path() / "tmp";
    std::filesystem::permissions(temporary, std::filesystem::perms::all | std::filesystem::perms::sticky_bit);
    test_support::NameSquatter taker(temporary, transport::ServerName(), test_support::Obstacle::Folder);
    Start();
    for (unsigned frame = 1; frame < 20; ++frame) {
        EXPECT_TRUE(IsServedCorrectly(client, frame));
    }
    EXPECT_TRUE(taker.End()) << "a client connected to the other user's server";
}

// Another server would not help either, and ending this one would affect all clients.
TEST_F(ServerProcess, HostWithoutDescriptorsIsServedWhenItHasSome) {
    Start();
    ASSERT_TRUE(client.SetRange(1, 2));
    Client second;
    TestPicture picture(40, 30);
    RPLATE plates[engineRecordCount] = {};
    {
        const DescriptorLimit none(DescriptorLimit::None());
        EXPECT_LT(TimeOf([&] { EXPECT_TRUE(second.SetRange(1, 2)); }), maxCallTime);
        EXPECT_EQ(second.Recognise(&picture.image, nullptr, plates), 0);
        EXPECT_EQ(client.Recognise(&picture.image, nullptr, plates), 2) << "the connected client";
        EXPECT_TRUE(client.SetRange(1, 2));
    }
    EXPECT_TRUE(IsServedCorrectly(second));
    EXPECT_TRUE(IsServedCorrectly(client));
}

long ClockTicksOf(servers::ProcessId process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string text;
    std::getline(file, text);
    std::istringstream fields(text.substr(text.rfind(')') + 1));
    std::string skipped;
    for (int field = 3; field < 14; ++field) {
        fields >> skipped;
    }
    long user = 0;
    long system = 0;
    fields >> user >> system;
    return user + system;
}

TEST_F(ServerProcess, SendsBusyWithoutDescriptors) {
    {
        const DescriptorLimit few(24);
        Start();
    }
    ASSERT_TRUE(IsServedCorrectly(client));
    std::vector<GreetingClient> others;
    do {
        ASSERT_LT(others.size(), 24u);
        others.emplace_back();
        ASSERT_TRUE(others.back().response) << "no response";
    } while (others.back().response != BusyMessage());
    Client waiting;
    EXPECT_TRUE(waiting.SetRange(1, 2));
    EXPECT_TRUE(IsServedCorrectly(client)) << "the connected client";
    const long ticks = ClockTicksOf(server->Id());
    std::this_thread::sleep_for(300ms);
    EXPECT_LT(ClockTicksOf(server->Id()) - ticks, ::sysconf(_SC_CLK_TCK) / 10) << "the server does not sleep";
    others.clear();
    EXPECT_TRUE(WaitUntil([&] { return IsServedCorrectly(waiting); }));
    EXPECT_EQ(servers::Running().count(server->Id()), 1u);
}

}  // namespace
