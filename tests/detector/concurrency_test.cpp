// Frames, settings and error reads on threads of their own; the thread sanitizer is the judge.

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

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

TEST(DetectorThreads, FramesSettingsAppliesAndErrorReadsMayMeet) {
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
                // A pointer stays valid until the next operation, so its characters are left alone here.
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

}  // namespace
