// A host that forks. The child has the detectors and the server of its parent, but no poll thread.

#include <functional>

#include "tests/plugin/plugin_fixture.h"
#include "tests/support/linux_forked_child.h"

namespace {

using namespace plugin_test;
using servers::Running;
using testing::SizeIs;

class ForkingHost : public PluginFixture {
  protected:
    // Every plate-size range is refused, so that each frame restarts the server.
    ForkingHost() { folder.SetScript(R"({"refused_ranges": "all"})"); }

    bool Receives() {
        auto* const receiver =
            Query<OKM8::Analytics::IMediaReceiver>(detectors.front(), OKM8::ContractName::IMediaReceiver);
        return receiver->Receive(recording_host::MakeFrame(buffers, 64, 48, 0)) == 0;
    }

    // Runs a child for each way to use or destroy the parent's objects, and checks that the parent's servers are
    // unchanged.
    void ExpectChildrenEndAndKeepTheServer() {
        const std::set<servers::ProcessId> before = Running();
        const struct {
            const char* name;
            std::function<bool()> action;
        } ways[] = {
            {"exits", [] { return true; }},
            {"plays a frame", [this] { return Receives(); }},
            {"creates a detector and destroys it",
             [this] {
                 Destroy(CreateDetector());
                 return true;
             }},
            {"destroys its detectors and the module",
             [this] {
                 while (!detectors.empty()) {
                     Destroy(detectors.back());
                 }
                 plugin->FinalizeModule();
                 return true;
             }},
            {"unloads the library",
             [this] {
                 while (!detectors.empty()) {
                     Destroy(detectors.back());
                 }
                 plugin->FinalizeModule();
                 plugin->Unload();
                 return !IsLoaded(LibraryFile());
             }},
        };
        for (const auto& way : ways) {
            EXPECT_EQ(test_support::ExitCodeOfForkedChild(way.action), 0) << "a child that " << way.name;
            EXPECT_EQ(Running(), before) << "a child that " << way.name;
        }
    }
};

// The first detector finds no program to start, so polling continues.
TEST_F(ForkingHost, HasChildrenThatEndAndKeepTheServerDuringPolling) {
    servers::Remove();
    Initialize();
    CreateDetector();
    ExpectChildrenEndAndKeepTheServer();
    servers::Place(VEXLANE_SERVER_PROGRAM);
    ASSERT_TRUE(WaitUntil([] { return Running().size() == 1; })) << "the parent no longer polls";
    ExpectChildrenEndAndKeepTheServer();
}

// The second detector finds a server and restarts it, which ends polling.
TEST_F(ForkingHost, HasChildrenThatEndAndKeepTheServerAfterPolling) {
    Initialize();
    CreateDetector();
    ASSERT_TRUE(WaitUntil([] { return Running().size() == 1; }));
    CreateDetector();
    ASSERT_THAT(Running(), SizeIs(1));
    ExpectChildrenEndAndKeepTheServer();
    EXPECT_TRUE(Receives());
    ASSERT_THAT(Running(), SizeIs(1)) << "the parent restarts its server as before";
    Destroy(detectors.back());
    EXPECT_THAT(Running(), SizeIs(0)) << "and ends it";
}

// A host that becomes a background process before its first detector.
TEST_F(ForkingHost, HasAChildThatStartsAndEndsItsOwnServerBeforeTheFirstDetector) {
    Initialize();
    EXPECT_EQ(test_support::ExitCodeOfForkedChild([this] {
                  CreateDetector();
                  const bool isStarted = WaitUntil([] { return Running().size() == 1; });
                  Destroy(detectors.back());
                  return isStarted && Running().empty();
              }),
              0);
}

}  // namespace
