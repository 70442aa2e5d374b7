// Frames, settings and error reads on separate threads. Where a test has no expectation, the thread sanitizer detects
// the failure.

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/detector/test_detector.h"

namespace {

using detector_tests::BufferPointer;
using detector_tests::DetectorPointer;
using detector_tests::FrameImage;
using detector_tests::MakeDetector;
using detector_tests::ReceiverOf;
using detector_tests::SettingsOf;
using detector_tests::SingleReceiverOf;

constexpr int rounds = 400;

TEST(DetectorThreads, FramesSettingsAppliesAndErrorReadsMayRunConcurrently) {
    recording_host::BufferCounts counts;
    recording_host::RecordingHost host;
    const DetectorPointer detectors[] = {MakeDetector(host), MakeDetector(host)};
    std::atomic<int> inside[] = {0, 0};
    std::atomic<int> overlaps = 0;
    const std::uint8_t figures[32] = {};
    for (std::size_t index = 0; index < 2; ++index) {
        auto* const detector = detectors[index].get();
        std::atomic<int>* const counter = &inside[index];
        const auto enter = [counter, &overlaps] {
            overlaps += counter->fetch_add(1) == 0 ? 0 : 1;
            counter->fetch_sub(1);
        };
        detector->onApplied = enter;
        detector->onRecognize = [detector, enter, &figures](FrameImage&, BufferPointer) {
            enter();
            detector->GetDetectionRect();
            detector->GetLogPrefix();
            detector->IsHalfFrame();
            std::string text;
            detector->GetFrameString("text", text);
            detector->RaiseDebugFigures(figures, "");
        };
    }

    std::atomic<int> failures = 0;
    std::vector<std::thread> threads;
    for (const DetectorPointer& detector : detectors) {
        threads.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                const std::uint32_t size = round % 7 == 0 ? 640 : 64;
                const auto time = static_cast<std::uint64_t>(round);
                failures += ReceiverOf(*detector).Receive(recording_host::MakeFrame(counts, size, size, time));
                failures += SingleReceiverOf(*detector).ReceiveSingle(
                    recording_host::MakeFrame(counts, size, size, time), nullptr, nullptr);
            }
        });
    }
    threads.emplace_back([&] {
        for (int round = 0; round < rounds; ++round) {
            for (const DetectorPointer& detector : detectors) {
                const std::string text(static_cast<std::size_t>(round % 50), 'x');
                SettingsOf(*detector).SetStringValue("name", text.c_str());
                SettingsOf(*detector).SetStringValue("id", text.c_str());
                SettingsOf(*detector).SetBoolValue("use_half_cadr", round % 2 == 0);
                SettingsOf(*detector).SetBoolValue("use_area", round % 3 == 0);
                SettingsOf(*detector).SetIntValue("area_left", round);
                SettingsOf(*detector).SetIntValue("nothing", round);
                SingleReceiverOf(*detector).SetStringValue("text", text.c_str());
            }
        }
    });
    threads.emplace_back([&] {
        for (int round = 0; round < rounds; ++round) {
            for (const DetectorPointer& detector : detectors) {
                SettingsOf(*detector).ApplySettings();
            }
        }
    });
    threads.emplace_back([&] {
        for (int round = 0; round < rounds; ++round) {
            for (const DetectorPointer& detector : detectors) {
                // The text is valid only until the next operation, so it is not read here.
                failures += detector_tests::ErrorsOf(*detector).GetErrorCode() == 1 ? 1 : 0;
                failures += detector_tests::ErrorsOf(*detector).GetErrorMessage() == nullptr ? 1 : 0;
            }
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(overlaps, 0) << "the hook and the applied settings ran at the same time";
    for (const DetectorPointer& detector : detectors) {
        EXPECT_EQ(detector->recognized, 2 * rounds);
    }
    EXPECT_EQ(counts.released, counts.made);
}

// Two single calls on two threads. At a step of the first call the second one would run from begin to end; the first
// call's lock must block it.

using Step = std::function<void()> detector_tests::TestDetector::*;

class TwoSingleCalls : public testing::TestWithParam<std::pair<const char*, Step>> {
  protected:
    struct Seen {
        std::int32_t left = -1;
        std::int32_t value = -1;      // of the name that both calls use
        std::int32_t ownValue = -1;   // of the name that only this call uses
        std::int32_t otherCode = -1;  // the code for reading the other call's value
        bool isSingle = false;
    };

    std::int32_t Call(int number) {
        const OKM8::FrameArea area = {10 * number, 0, 10, 10};
        SingleReceiverOf(*detector).SetIntValue("both", number);
        SingleReceiverOf(*detector).SetIntValue(number == 1 ? "first" : "second", number);
        return SingleReceiverOf(*detector).ReceiveSingle(
            recording_host::MakeFrame(counts, 100, 100, static_cast<std::uint64_t>(number)), &area, nullptr);
    }

    Seen ReadValues(bool isFirst) const {
        Seen seen;
        seen.left = detector->GetDetectionRect().left;
        detector->GetFrameInt("both", seen.value);
        detector->GetFrameInt(isFirst ? "first" : "second", seen.ownValue);
        std::int32_t other = -1;
        seen.otherCode = detector->GetFrameInt(isFirst ? "second" : "first", other);
        seen.isSingle = detector->inSingleCall;
        return seen;
    }

    recording_host::BufferCounts counts;
    recording_host::RecordingHost host;
    DetectorPointer detector = MakeDetector(host);
};

TEST_P(TwoSingleCalls, DoNotMixTheirAreasAndValues) {
    std::int32_t secondOutcome = -1;
    bool isReached = false;
    bool couldLock = false;
    (*detector).*GetParam().second = [&] {
        if (std::exchange(isReached, true)) {
            return;
        }
        std::thread([&] {
            couldLock = detector->frameMutex.try_lock();
            if (couldLock) {
                detector->frameMutex.unlock();
            }
        }).join();
        if (couldLock) {
            std::thread([&] { secondOutcome = Call(2); }).join();
        }
    };
    std::vector<Seen> seen;
    detector->onRecognize = [&](FrameImage&, const BufferPointer& buffer) {
        seen.push_back(ReadValues(buffer->GetTimeStamp() == 1));
    };
    EXPECT_EQ(Call(1), 0);
    EXPECT_TRUE(isReached);
    EXPECT_FALSE(couldLock);
    if (secondOutcome == -1) {
        std::thread([&] { secondOutcome = Call(2); }).join();
    }
    EXPECT_EQ(secondOutcome, 0);
    ASSERT_EQ(seen.size(), 2u);
    for (int number = 1; number <= 2; ++number) {
        const Seen& call = seen[static_cast<std::size_t>(number - 1)];
        EXPECT_EQ(call.left, 10 * number);
        EXPECT_EQ(call.value, number);
        EXPECT_EQ(call.ownValue, number);
        EXPECT_EQ(call.otherCode, 2816);
        EXPECT_TRUE(call.isSingle);
    }
    detector.reset();
    EXPECT_EQ(counts.released, counts.made);
}

INSTANTIATE_TEST_SUITE_P(
    MeetingAt, TwoSingleCalls,
    testing::Values(std::pair("TheFirstOnesBegin", &detector_tests::TestDetector::onSingleCallBegun),
                    std::pair("TheFirstOnesEnd", &detector_tests::TestDetector::onSingleCallEnding)),
    [](const auto& instance) { return std::string(instance.param.first); });

}  // namespace
