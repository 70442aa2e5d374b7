// Every engine call is a sign of life of the recognition server. A poll renews it before it checks it, so the clock has
// to jump between the two.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "tests/engine/probe_detector.h"

namespace {

using namespace std::chrono_literals;
using engine_tests::EngineTest;

class KeepAlive : public EngineTest {
  protected:
    KeepAlive() {
        Detector();
        GetServerLauncher()->Stop();  // polls only on request
        GetServerLauncher()->Start();
    }
    ~KeepAlive() override { End(); }

    // Polls once, with the clock an hour ahead after the scan; returns whether the poll restarted the server.
    bool RestartsAfterAnHourAnd(const std::function<void()>& action) {
        const std::size_t before = fake_processes::JournalOf("terminate").size();
        bool hasJumped = false;
        fake_processes::AfterNextScan([&] {
            hasJumped = true;
            fake_processes::SetClockAhead(1h);
            action();
        });
        GetServerLauncher()->OnTimeout();
        fake_processes::AfterNextScan(nullptr);
        EXPECT_TRUE(hasJumped);
        return fake_processes::JournalOf("terminate").size() > before;
    }
};

TEST_F(KeepAlive, AnHourOfSilenceRestartsTheServer) {
    EXPECT_TRUE(RestartsAfterAnHourAnd([] {}));
}

class KeepAliveByCount : public KeepAlive, public testing::WithParamInterface<int> {};

TEST_P(KeepAliveByCount, AFrameIsASignOfLifeForAnyEngineResult) {
    fake_engine::OnRecognize([](const IMG&, RPLATE*) { return GetParam(); });
    EXPECT_FALSE(RestartsAfterAnHourAnd([&] { EXPECT_EQ(Frame(1), 0); }));
    EXPECT_EQ(fake_engine::RecognizeCalls().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(OfPlates, KeepAliveByCount,
                         testing::Values(std::numeric_limits<int>::min(), -1, 0, 1, engineRecordCount,
                                         engineRecordCount + 1));

TEST_F(KeepAlive, AFrameIsASignOfLifeWhenTheEngineHasReadIt) {
    fake_engine::OnRecognize([](const IMG&, RPLATE*) {
        fake_processes::SetClockAhead(2h);  // the engine takes an hour
        return 0;
    });
    EXPECT_FALSE(RestartsAfterAnHourAnd([&] { EXPECT_EQ(Frame(1), 0); }));
}

TEST_F(KeepAlive, AFrameBeforeTheSilenceDoesNotPreventTheRestart) {
    EXPECT_EQ(Frame(1), 0);
    EXPECT_TRUE(RestartsAfterAnHourAnd([] {}));
}

TEST_F(KeepAlive, AFrameThatDoesNotReachTheEngineIsNoSignOfLife) {
    EXPECT_TRUE(RestartsAfterAnHourAnd([&] {
        OKM8::Analytics::IMediaReceiver& receiver = Detector();
        EXPECT_EQ(receiver.Receive(nullptr), 1);
    }));
}

}  // namespace
