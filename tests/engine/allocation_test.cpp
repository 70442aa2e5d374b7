// The allocations of a frame in the detector at debug level 0, and what happens when they fail. A formatted message, an
// additional copy or a new picture buffer increases the number.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/engine/probe_detector.h"
#include "tests/support/allocation_count.h"

namespace {

using allocation_count::Count;
using engine_tests::EngineTest;
using engine_tests::FoundPlate;

// The engine's records, and the reference count of the host's frame.
constexpr std::uint64_t everyFrame = 2;

constexpr std::size_t readingTextLength = 15;

constexpr std::size_t pictureSized = 64 * 1024;

// A short text is stored in the string itself; the limit differs between standard libraries.
std::uint64_t BlocksOfText(std::size_t length) {
    return length > std::wstring().capacity() ? 1 : 0;
}

// The reading, its reference count, the result, and its entry in the table; the texts of reading and result.
std::uint64_t BlocksOfPlate(const std::string& text) {
    return 4 + BlocksOfText(readingTextLength) + BlocksOfText(text.size());
}

std::array<RPLATE, engineRecordCount> found;
int foundCount = 0;

class FrameAllocations : public EngineTest {
  protected:
    FrameAllocations() {
        foundCount = 0;
        fake_engine::StopRecording();
        fake_engine::OnRecognize([](const IMG&, RPLATE* plates) {
            std::copy_n(found.begin(), foundCount, plates);
            return foundCount;
        });
        Detector();
        GetServerLauncher()->Stop();
        GetServerLauncher()->Start();
    }

    void FindAlso(const FoundPlate& plate) { found[static_cast<std::size_t>(foundCount++)] = RecordOf(plate); }

    void FindFivePlates() {
        for (int index = 0; index < engineRecordCount; ++index) {
            const std::string text(6, static_cast<char>('A' + index));
            const int top = 20 + index * 90;
            FindAlso({.text = text, .left = 100, .top = top, .right = 160, .bottom = top + 20});
        }
    }

    // The allocations of a grey frame that the host has created before.
    Count CountedFrame() {
        now += 40;
        OKM8::Analytics::IMediaReceiver& receiver = Detector();
        auto* const frame = recording_host::MakeFrame(counts, width, height, now);
        std::int32_t outcome = -1;
        const Count count = allocation_count::Of([&] { outcome = receiver.Receive(frame); });
        EXPECT_EQ(outcome, 0);
        EXPECT_LT(count.largest, now == firstTime + 40 ? std::size_t{4} * width * height : pictureSized);
        return count;
    }

    void WarmUp() {
        for (int frame = 0; frame < 70; ++frame) {
            CountedFrame();
        }
    }

    static constexpr std::uint64_t firstTime = 1000;
    std::uint64_t now = firstTime;
    std::uint32_t width = 640;
    std::uint32_t height = 480;
};

TEST_F(FrameAllocations, WithoutPlatesAreTwo) {
    CountedFrame();  // the converter's picture, the tracker
    for (int frame = 0; frame < 20; ++frame) {
        EXPECT_EQ(CountedFrame().number, everyFrame);
    }
}

TEST_F(FrameAllocations, OfAnAreaAreNoMore) {
    Settings().SetBoolValue("use_area", true);
    Settings().SetIntValue("area_right", 50);
    CountedFrame();
    EXPECT_EQ(CountedFrame().number, everyFrame);
}

TEST_F(FrameAllocations, AfterAnErrorAreNoMore) {
    CountedFrame();
    const std::string refused(1000, 'x');
    EXPECT_NE(Settings().SetBoolValue(refused.c_str(), true), 0);
    EXPECT_EQ(CountedFrame().number, everyFrame);
    EXPECT_EQ(ErrorState(), engine_tests::Error(0, ""));
}

TEST_F(FrameAllocations, OfASingleCallAreNoMore) {
    CountedFrame();
    const OKM8::FrameArea area = {10, 10, 50, 50};
    OKM8::Analytics::IMediaReceiverSingle2& receiver = Detector();
    auto* const frame = recording_host::MakeFrame(counts, width, height, now);
    EXPECT_EQ(allocation_count::Of([&] { receiver.ReceiveSingle(frame, &area, nullptr); }).number, everyFrame);
}

TEST_F(FrameAllocations, WithFivePlatesAreSixForEachAndTheirList) {
    FindFivePlates();
    WarmUp();
    ASSERT_EQ(host.Events().size(), 5u) << "the plates are stationary and have been reported";
    constexpr std::uint64_t frames = 40;
    const std::uint64_t expected = everyFrame + 1 + engineRecordCount * BlocksOfPlate("AAAAAA");
    std::uint64_t least = UINT64_MAX;
    std::uint64_t all = 0;
    for (std::uint64_t frame = 0; frame < frames; ++frame) {
        const std::uint64_t number = CountedFrame().number;
        least = std::min(least, number);
        all += number;
    }
    EXPECT_EQ(least, expected);
    // Each of the five tracks may have to grow its list of readings once.
    EXPECT_LE(all, frames * expected + engineRecordCount);
}

TEST_F(FrameAllocations, OfAStationaryPlateDoNotGrow) {
    width = 192;
    height = 144;
    constexpr int misreadings = 100;
    const auto misread = [&](int number) {
        foundCount = 0;
        FoundPlate plate;
        plate.text[0] = static_cast<char>('A' + number % 10);
        plate.text[1] = static_cast<char>('A' + number / 10 % 10);
        FindAlso(plate);
    };
    for (int frame = 0; frame < 3 * misreadings; ++frame) {
        misread(frame);
        CountedFrame();
    }
    constexpr int frames = 2000;
    const std::uint64_t expected = everyFrame + 1 + BlocksOfPlate("AB123C");
    std::uint64_t all = 0;
    for (int frame = 0; frame < frames; ++frame) {
        misread(frame);
        const std::uint64_t number = CountedFrame().number;
        ASSERT_GE(number, expected);
        ASSERT_LE(number, expected + 1) << "a list of readings may have to grow";
        all += number;
        // The best reading of each text is kept, and the previous and the last one; the others' frames are released.
        ASSERT_LE(Detector().pendingResults.size(), misreadings + 2u) << "frame " << frame;
        ASSERT_LE(counts.made - counts.released, misreadings + 2) << "frame " << frame;
    }
    EXPECT_LE(all, frames * expected + misreadings * 8);
    EXPECT_EQ(host.Events().size(), 1u);
}

// Tracks are lost while the allocations of their events fail: only the events are missing.
TEST_F(FrameAllocations, ThatFailWhilePlatesAreReportedLoseOnlyTheirEvents) {
    std::uint64_t number = 1;
    for (bool hasFailed = true; hasFailed; ++number) {
        SCOPED_TRACE(number);
        detector.reset();
        now = firstTime;
        foundCount = 0;
        FindFivePlates();
        CountedFrame();
        CountedFrame();
        foundCount = 0;
        const std::size_t eventsBefore = host.Events().size();
        now += 100000;
        OKM8::Analytics::IMediaReceiver& receiver = Detector();
        auto* const frame = recording_host::MakeFrame(counts, width, height, now);
        std::int32_t outcome = -1;
        {
            allocation_count::Failure failure(number, allocation_count::Failing::AllFromThenOn);
            outcome = receiver.Receive(frame);
            hasFailed = failure.End();
        }
        EXPECT_EQ(outcome, number == 1 ? 1 : 0) << "the first allocation, the reference count, fails the frame";
        if (number <= everyFrame) {
            CountedFrame();  // the failed frame did not reach the tracker
        }
        EXPECT_EQ(Detector().pendingResults.size(), 0u);
        EXPECT_EQ(counts.made - counts.released, 0);
        const std::size_t events = host.Events().size();
        EXPECT_EQ(hasFailed || events - eventsBefore == 5, true);
        CountedFrame();
        EXPECT_EQ(host.Events().size(), events) << "no event is retried";
    }
    EXPECT_GT(number, everyFrame + 5) << "each track is copied for its event";
}

// When the converter could not be created, the engine received the host's own bytes and read past their end.
class FirstFrameWithoutMemory : public FrameAllocations, public testing::WithParamInterface<bool> {
  protected:
    FirstFrameWithoutMemory() {
        fake_engine::OnRecognize([this](const IMG& image, RPLATE*) {
            areColours = areColours && image.pixels[0] != image.pixels[1];
            ++calls;
            return 0;
        });
    }

    // All bytes of the frame are equal, but its blue, green and red differ.
    OKM8::MFF::IMultimediaBuffer* Violet() {
        now += 40;
        return recording_host::MakeBuffer(counts, {.width = width,
                                                   .height = height,
                                                   .pixels = std::vector<std::uint8_t>(width * height * 3 / 2, 200),
                                                   .timeStamp = now});
    }

    bool areColours = true;
    int calls = 0;
};

TEST_P(FirstFrameWithoutMemory, PassesOnlyConvertedPixelsToTheEngineAndTheNextFrameSucceeds) {
    std::uint64_t number = 1;
    for (bool hasFailed = true; hasFailed; ++number) {
        SCOPED_TRACE(number);
        detector.reset();
        EXPECT_EQ(Settings().SetBoolValue("use_half_cadr", GetParam()), 0);
        calls = 0;
        OKM8::Analytics::IMediaReceiver& receiver = Detector();
        auto* const frame = Violet();
        {
            allocation_count::Failure failure(number);
            receiver.Receive(frame);
            hasFailed = failure.End();
        }
        EXPECT_TRUE(areColours);
        EXPECT_EQ(receiver.Receive(Violet()), 0);
        EXPECT_GE(calls, 1);
        EXPECT_TRUE(areColours);
        EXPECT_EQ(ErrorState(), engine_tests::Error(0, ""));
    }
    EXPECT_GT(number, everyFrame + 3) << "the chain, the converter and its picture are further ones";
}

INSTANTIATE_TEST_SUITE_P(OfHalfFrames, FirstFrameWithoutMemory, testing::Bool());

TEST_P(FirstFrameWithoutMemory, IsAnErrorAsLongAsThereIsNoConverter) {
    EXPECT_EQ(Settings().SetBoolValue("use_half_cadr", GetParam()), 0);
    OKM8::Analytics::IMediaReceiver& receiver = Detector();
    for (int attempt = 0; attempt < 3; ++attempt) {
        auto* const frame = Violet();
        std::int32_t outcome = -1;
        {
            allocation_count::Failure failure(2, allocation_count::Failing::AllFromThenOn);
            outcome = receiver.Receive(frame);
        }
        EXPECT_EQ(outcome, 1);
        EXPECT_EQ(ErrorState(), engine_tests::Error(1, "Wrong image format"));
        EXPECT_EQ(calls, 0);
    }
    EXPECT_EQ(receiver.Receive(Violet()), 0);
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(areColours);
}

}  // namespace
