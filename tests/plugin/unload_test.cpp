// Unloading the library and ending the process, in good order and in none.

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>

#include "tests/plugin/posix_plugin_fixture.h"

namespace {

using namespace plugin_test;
using posix_servers::Running;
using testing::IsEmpty;

constexpr char libraryFile[] = "libvexlane.so";

// Detectors and modules that nobody destroyed: their memory stays, and the leak checker, which looks behind the end of
// all static objects, finds it here.
std::vector<void*>& Abandoned() {
    static std::vector<void*>& objects = *new std::vector<void*>;
    return objects;
}

class Unloading : public testing::Test {
  protected:
    Unloading() { posix_servers::Place(VEXLANE_SERVER_PROGRAM); }
    ~Unloading() override {
        plugin.reset();
        posix_servers::KillAll();
        posix_servers::Remove();
    }

    void Load() {
        plugin = std::make_unique<Plugin>();
        ASSERT_TRUE(IsMapped(libraryFile));
        ASSERT_EQ(plugin->InitializeModule(host.Object()), 0);
    }

    OKM8::Analytics::IDetector* CreateDetector() { return plugin->GetModule()->CreateDetector(nullptr, host.Peer()); }

    void ExpectNothingIsLeft() {
        EXPECT_FALSE(IsMapped(libraryFile));
        EXPECT_THAT(Running(), IsEmpty());
        EXPECT_EQ(posix_servers::Zombies(), 0);
    }

    TestFolder folder;
    recording_host::RecordingHost host;
    recording_host::BufferCounts buffers;
    std::unique_ptr<Plugin> plugin;
};

TEST_F(Unloading, ALibraryThatWasNotUsedLeavesNothing) {
    plugin = std::make_unique<Plugin>();
    plugin->Unload();
    ExpectNothingIsLeft();
}

TEST_F(Unloading, InGoodOrderLeavesNothingAndCanBeRepeated) {
    for (int round = 0; round < 3; ++round) {
        Load();
        OKM8::Analytics::IDetector* const detector = CreateDetector();
        auto* const receiver =
            static_cast<OKM8::Analytics::IMediaReceiver*>(detector->QueryContract(OKM8::ContractName::IMediaReceiver));
        EXPECT_EQ(receiver->Receive(recording_host::MakeFrame(buffers, 64, 48, 0)), 0);
        ASSERT_TRUE(ComesTrue([] { return Running().size() == 1; }));
        detector->Destroy();
        EXPECT_THAT(Running(), IsEmpty());
        plugin->FinalizeModule();
        plugin->Unload();
        ExpectNothingIsLeft();
    }
    EXPECT_EQ(buffers.released, 3);
}

TEST_F(Unloading, WhileTheModuleStillExistsComesBack) {
    Load();
    // The module object stays allocated; only its address is kept.
    Abandoned().push_back(plugin->GetModule());
    plugin->Unload();
    ExpectNothingIsLeft();
}

// The first detector finds no program to start, so polling goes on, and one of the next polls starts the server.
TEST_F(Unloading, WhilePollingRunsEndsTheServerAndLeavesNothing) {
    posix_servers::Remove();
    Load();
    Abandoned().push_back(plugin->GetModule());
    Abandoned().push_back(CreateDetector());
    posix_servers::Place(VEXLANE_SERVER_PROGRAM);
    ASSERT_TRUE(ComesTrue([] { return Running().size() == 1; })) << "polling has not gone on";
    plugin->Unload();
    ExpectNothingIsLeft();
}

TEST_F(Unloading, WhilePollingFindsNoProgramLeavesNothing) {
    posix_servers::Remove();
    for (int round = 0; round < 5; ++round) {
        Load();
        Abandoned().push_back(plugin->GetModule());
        Abandoned().push_back(CreateDetector());
        plugin->Unload();
        ExpectNothingIsLeft();
    }
}

TEST_F(Unloading, TheMomentTheFirstDetectorIsThereLeavesNothing) {
    for (int round = 0; round < 10; ++round) {
        Load();
        Abandoned().push_back(plugin->GetModule());
        Abandoned().push_back(CreateDetector());
        plugin->Unload();
        ExpectNothingIsLeft();
    }
}

// The end of the process, in a program of its own

class ProcessEnd : public testing::TestWithParam<const char*> {
  protected:
    ProcessEnd() { posix_servers::Remove(); }
    ~ProcessEnd() override { posix_servers::Remove(); }

    TestFolder folder;
};

bool IsGone(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string text;
    std::getline(file, text);
    const std::size_t close = text.rfind(')');
    return close == std::string::npos || text.compare(close, 3, ") Z") == 0;
}

TEST_P(ProcessEnd, WhilePollingRunsComesBackAndEndsTheServer) {
    std::array<int, 2> report = {};
    ASSERT_EQ(pipe(report.data()), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, report[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, report[0]);
    const std::string program = posix_servers::OwnFolder() / "plugin-ending-host";
    std::string way = GetParam();
    std::array<char*, 3> arguments = {const_cast<char*>(program.c_str()), way.data(), nullptr};
    pid_t child = 0;
    ASSERT_EQ(posix_spawn(&child, program.c_str(), &actions, nullptr, arguments.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(report[1]);

    // The child writes the server's id and then ends.
    std::array<char, 32> text = {};
    EXPECT_GT(read(report[0], text.data(), text.size() - 1), 0);
    close(report[0]);
    const pid_t server = std::atoi(text.data());
    EXPECT_GT(server, 0);
    int status = 0;
    pid_t ended = 0;
    const bool comesBack = ComesTrue([&] { return (ended = waitpid(child, &status, WNOHANG)) != 0; });
    if (!comesBack) {
        posix_servers::Kill(child);
        waitpid(child, &status, 0);
    }
    EXPECT_TRUE(comesBack) << "the process hangs at its end";
    EXPECT_EQ(ended, child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_TRUE(ComesTrue([server] { return IsGone(server); }));
}

INSTANTIATE_TEST_SUITE_P(Way, ProcessEnd, testing::Values("return", "exit", "exit-on-a-thread", "unload"));

}  // namespace
