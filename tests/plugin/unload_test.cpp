// Unloading the library and ending the process, in order and out of order.

#include <chrono>

#include "tests/plugin/plugin_fixture.h"

namespace {

using namespace plugin_test;
using servers::Running;
using testing::IsEmpty;

constexpr std::chrono::seconds longestEnd(2);

// Detectors and modules that are never destroyed: their memory stays allocated, and the leak checker, which runs after
// the destruction of all static objects, finds it here.
std::vector<void*>& Abandoned() {
    static std::vector<void*>& objects = *new std::vector<void*>;
    return objects;
}

class Unloading : public testing::Test {
  protected:
    Unloading() { servers::Place(VEXLANE_SERVER_PROGRAM); }
    ~Unloading() override {
        plugin.reset();
        servers::KillAll();
        servers::Remove();
    }

    void Load() {
        plugin = std::make_unique<Plugin>();
        ASSERT_TRUE(IsLoaded(LibraryFile()));
        ASSERT_EQ(plugin->InitializeModule(host.Object()), 0);
    }

    OKM8::Analytics::IDetector* CreateDetector() { return plugin->GetModule()->CreateDetector(nullptr, host.Peer()); }

    void ExpectUnloadingReturns() {
        const auto start = std::chrono::steady_clock::now();
        plugin->Unload();
        EXPECT_LT(std::chrono::steady_clock::now() - start, longestEnd);
    }

    void ExpectNothingIsLeft() {
        EXPECT_FALSE(IsLoaded(LibraryFile()));
        EXPECT_THAT(Running(), IsEmpty());
        EXPECT_EQ(servers::Zombies(), 0);
    }

    // Unloads while a detector exists and the library polls for it.
    void UnloadWhilePollingRuns(OKM8::Analytics::IDetector* detector) {
        ExpectUnloadingReturns();
        if (pollingKeepsTheLibrary) {
            // Threads cannot be joined there, so polling continues in a library that stays loaded. A host that loads it
            // again ends polling as usual, and then it is unloaded.
            EXPECT_TRUE(IsLoaded(LibraryFile()));
            plugin = std::make_unique<Plugin>();
            detector->Destroy();
            plugin->FinalizeModule();
            ExpectUnloadingReturns();
        } else {
            Abandoned().push_back(detector);
        }
        ExpectNothingIsLeft();
    }

    TestFolder folder;
    recording_host::RecordingHost host;
    recording_host::BufferCounts buffers;
    std::unique_ptr<Plugin> plugin;
};

TEST_F(Unloading, InOrderLeavesNothingAndCanBeRepeated) {
    for (int round = 0; round < 3; ++round) {
        Load();
        OKM8::Analytics::IDetector* const detector = CreateDetector();
        auto* const receiver =
            static_cast<OKM8::Analytics::IMediaReceiver*>(detector->QueryContract(OKM8::ContractName::IMediaReceiver));
        EXPECT_EQ(receiver->Receive(recording_host::MakeFrame(buffers, 64, 48, 0)), 0);
        ASSERT_TRUE(WaitUntil([] { return Running().size() == 1; }));
        detector->Destroy();
        EXPECT_THAT(Running(), IsEmpty());
        plugin->FinalizeModule();
        ExpectUnloadingReturns();
        ExpectNothingIsLeft();
    }
    EXPECT_EQ(buffers.released, 3);
}

// The first detector finds no program to start, so polling continues, and one of the next polls starts the server.
TEST_F(Unloading, DuringPollingReturnsAndTheServerEndsWithTheLibrary) {
    servers::Remove();
    Load();
    Abandoned().push_back(plugin->GetModule());
    OKM8::Analytics::IDetector* const detector = CreateDetector();
    servers::Place(VEXLANE_SERVER_PROGRAM);
    ASSERT_TRUE(WaitUntil([] { return Running().size() == 1; })) << "polling has stopped";
    UnloadWhilePollingRuns(detector);
}

TEST_F(Unloading, RightAfterTheFirstDetectorReturns) {
    for (int round = 0; round < 10; ++round) {
        Load();
        Abandoned().push_back(plugin->GetModule());
        OKM8::Analytics::IDetector* const detector = CreateDetector();
        ExpectUnloadingReturns();
        if (IsLoaded(LibraryFile())) {
            ASSERT_TRUE(pollingKeepsTheLibrary);
            plugin = std::make_unique<Plugin>();
            detector->Destroy();
            ExpectUnloadingReturns();
        } else {
            Abandoned().push_back(detector);
        }
        ExpectNothingIsLeft();
    }
}

// The end of the process, in a separate program

class ProcessEnd : public testing::TestWithParam<const char*> {
  protected:
    ProcessEnd() { servers::Remove(); }
    ~ProcessEnd() override { servers::Remove(); }

    TestFolder folder;
};

TEST_P(ProcessEnd, DuringPollingSucceedsAndEndsTheServer) {
    test_support::ChildProcess host({.program = servers::OwnFolder() / VEXLANE_ENDING_HOST, .arguments = {GetParam()}});
    // It prints the server's id and then ends.
    host.WaitForOutput("\n");
    const servers::ProcessId server = std::stoi(host.Output());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_GT(server, 0);
    const test_support::Finished end = host.Wait();
    EXPECT_LT(std::chrono::steady_clock::now() - start, longestEnd);
    EXPECT_EQ(end.status, 0) << end.errors;
    EXPECT_TRUE(WaitUntil([server] { return servers::IsGone(server); }));
}

INSTANTIATE_TEST_SUITE_P(Way, ProcessEnd, testing::Values("return", "exit", "exit-on-a-thread", "unload"));

}  // namespace
