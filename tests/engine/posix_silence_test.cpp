// A frame that the engine has handled is the server's sign of life. A silence is made by a jump of the local time, by
// another time zone, between a poll's scan, which is a sign of life too, and its look at the time of the last one.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <array>
#include <cstdio>
#include <functional>
#include <limits>

#include "tests/engine/probe_detector.h"

namespace {

using engine_tests::EngineTest;

constexpr int anHour = 3600;

// The system's offsets are those to be added to local time, so a jump ahead has a minus sign.
void SetClockAhead(int seconds) {
    std::array<char, 32> zone = {};
    std::snprintf(zone.data(), zone.size(), "TST-%02d:%02d:%02d", seconds / 3600, seconds / 60 % 60, seconds % 60);
    setenv("TZ", zone.data(), 1);
    tzset();
}

class SignOfLife : public EngineTest, public testing::WithParamInterface<int> {
  protected:
    // A server of the launcher's own, and nobody who polls but the test.
    SignOfLife() {
        SetClockAhead(0);
        Detector();
        GetServerLauncher()->Stop();
        GetServerLauncher()->Start();
        startsBefore = Starts();
    }
    ~SignOfLife() override {
        fake_processes::OnOperation({});
        End();
        unsetenv("TZ");
        tzset();
    }

    static std::size_t Starts() { return fake_processes::JournalOf("start").size(); }

    // One poll of the launcher; behind its scan the clock jumps by an hour, and then something happens.
    void PollWithAJump(const std::function<void()>& then) {
        bool jumped = false;
        fake_processes::OnOperation([&](const std::string& line) {
            if (line == "close" && !jumped) {
                jumped = true;
                SetClockAhead(anHour);
                then();
            }
        });
        GetServerLauncher()->OnTimeout();
        fake_processes::OnOperation({});
        EXPECT_TRUE(jumped);
    }

    // The engine answers that many plates, whatever it has written.
    static void Answer(int count) {
        fake_engine::OnRecognize([count](const IMG&, RPLATE*) { return count; });
    }

    std::size_t startsBefore = 0;
};

TEST_P(SignOfLife, IsAFrameWhateverTheEngineAnswers) {
    ASSERT_EQ(fake_processes::Running().size(), 1u);
    const auto running = fake_processes::Running();
    Answer(GetParam());
    PollWithAJump([this] { EXPECT_EQ(Frame(1), 0); });
    EXPECT_EQ(fake_engine::RecognizeCalls().size(), 1u);
    EXPECT_EQ(Starts(), startsBefore);
    EXPECT_EQ(fake_processes::Running(), running);
}

INSTANTIATE_TEST_SUITE_P(OfPlates, SignOfLife,
                         testing::Values(std::numeric_limits<int>::min(), -1, 0, 1, engineRecordCount,
                                         engineRecordCount + 1));

class NoSignOfLife : public SignOfLife {};

TEST_P(NoSignOfLife, IsAFrameOfBeforeTheSilence) {
    const auto running = fake_processes::Running();
    Answer(GetParam());
    EXPECT_EQ(Frame(1), 0);
    PollWithAJump([] {});
    EXPECT_EQ(fake_engine::RecognizeCalls().size(), 1u);
    EXPECT_EQ(Starts(), startsBefore + 1);
    EXPECT_EQ(fake_processes::Running().size(), 1u);
    EXPECT_NE(fake_processes::Running(), running);
}

TEST_P(NoSignOfLife, IsAFrameThatIsRefusedBeforeTheEngine) {
    Answer(GetParam());
    PollWithAJump([this] {
        OKM8::Analytics::IMediaReceiver& receiver = Detector();
        EXPECT_EQ(receiver.Receive(nullptr), 1);
    });
    EXPECT_TRUE(fake_engine::RecognizeCalls().empty());
    EXPECT_EQ(Starts(), startsBefore + 1);
}

INSTANTIATE_TEST_SUITE_P(OfPlates, NoSignOfLife, testing::Values(-1, 1));

}  // namespace
