// Every engine call is a sign of life of the recognition server. A poll that looks at it renews it first, so the clock
// has to jump between the two, by another time zone.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "tests/engine/probe_detector.h"
#include "tests/support/environment.h"

namespace {

using engine_tests::EngineTest;

void SetZone(const char* zone) {
    test_support::SetEnvironment("TZ", zone);
    test_support::ReadTimeZone();
}

class KeepAlive : public EngineTest {
  protected:
    KeepAlive() {
        SetZone("TST-00");
        Detector();
        GetServerLauncher()->Stop();  // polls only when told to
        GetServerLauncher()->Start();
    }
    ~KeepAlive() override {
        fake_processes::OnOperation(nullptr);
        End();
        test_support::UnsetEnvironment("TZ");
        test_support::ReadTimeZone();
    }

    // One poll whose clock jumps ahead by an hour behind its scan; answers whether it restarted the server.
    bool RestartsAfterAnHourAnd(const std::function<void()>& action) {
        const std::size_t before = fake_processes::JournalOf("terminate").size();
        bool hasJumped = false;
        fake_processes::OnOperation([&](const std::string& line) {
            if (line == "close" && !hasJumped) {
                hasJumped = true;
                SetZone("TST-01");
                action();
            }
        });
        GetServerLauncher()->OnTimeout();
        fake_processes::OnOperation(nullptr);
        EXPECT_TRUE(hasJumped);
        return fake_processes::JournalOf("terminate").size() > before;
    }
};

TEST_F(KeepAlive, AnHourOfSilenceRestartsTheServer) {
    EXPECT_TRUE(RestartsAfterAnHourAnd([] {}));
}

class KeepAliveByCount : public KeepAlive, public testing::WithParamInterface<int> {};

TEST_P(KeepAliveByCount, AFrameIsASignOfLifeWhateverTheEngineAnswers) {
    fake_engine::OnRecognize([](const IMG&, RPLATE*) { return GetParam(); });
    EXPECT_FALSE(RestartsAfterAnHourAnd([&] { EXPECT_EQ(Frame(1), 0); }));
    EXPECT_EQ(fake_engine::RecognizeCalls().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(OfPlates, KeepAliveByCount,
                         testing::Values(std::numeric_limits<int>::min(), -1, 0, 1, engineRecordCount,
                                         engineRecordCount + 1));

TEST_F(KeepAlive, AFrameIsASignOfLifeWhenTheEngineHasReadIt) {
    fake_engine::OnRecognize([](const IMG&, RPLATE*) {
        SetZone("TST-02");  // the engine takes an hour
        return 0;
    });
    EXPECT_FALSE(RestartsAfterAnHourAnd([&] { EXPECT_EQ(Frame(1), 0); }));
}

TEST_F(KeepAlive, AFrameBeforeTheSilenceDoesNotEndIt) {
    EXPECT_EQ(Frame(1), 0);
    EXPECT_TRUE(RestartsAfterAnHourAnd([] {}));
}

TEST_F(KeepAlive, AFrameThatNeverReachesTheEngineIsNone) {
    EXPECT_TRUE(RestartsAfterAnHourAnd([&] {
        OKM8::Analytics::IMediaReceiver& receiver = Detector();
        EXPECT_EQ(receiver.Receive(nullptr), 1);
    }));
}

}  // namespace
