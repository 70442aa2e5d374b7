// Frames of two detectors, settings and the launcher's polls on separate threads, for the thread sanitizer.

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "tests/engine/probe_detector.h"
#include "tests/support/completes_within.h"

namespace {

using namespace std::chrono_literals;
using engine_tests::DetectorPointer;
using engine_tests::EngineTest;
using engine_tests::FoundPlate;
using engine_tests::ProbeDetector;

class EngineThreads : public EngineTest {
  protected:
    ~EngineThreads() override { End(); }
};

TEST_F(EngineThreads, SettersDoNotWaitForABusyEngine) {
    std::mutex mutex;
    std::condition_variable changed;
    bool isInside = false;
    bool mayLeave = false;
    Detector();
    fake_engine::OnRecognize([&](const IMG&, RPLATE*) {
        std::unique_lock lock(mutex);
        isInside = true;
        changed.notify_all();
        changed.wait(lock, [&] { return mayLeave; });
        return 0;
    });
    std::int32_t code = -1;
    std::thread frames([&] { code = Frame(1); });
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return isInside; });
    }
    EXPECT_TRUE(CompletesWithin(1min, [&] {
        EXPECT_EQ(Settings().SetIntValue("zone_width", 40), 0);
        EXPECT_EQ(Settings().SetBoolValue("use_area", true), 0);
        EXPECT_EQ(Settings().SetStringValue("name", "gate"), 0);
        OKM8::Analytics::IMediaReceiverSingle2& values = Detector();
        EXPECT_EQ(values.SetDoubleValue("x", 1.0), 0);
        EXPECT_EQ(Settings().SetIntValue("nothing", 1), 2816);
        EXPECT_EQ(ErrorState().first, 2816);
    }));
    EXPECT_EQ(code, -1) << "the frame is still with the engine";
    {
        const std::lock_guard lock(mutex);
        mayLeave = true;
    }
    changed.notify_all();
    frames.join();
    EXPECT_EQ(code, 0);
    EXPECT_EQ(Detector().zoneWidth, 40);
}

TEST_F(EngineThreads, ApplyingSettingsWaitsForTheFrame) {
    std::atomic<bool> isRecognizing = false;
    std::atomic<bool> hasApplied = false;
    std::atomic<bool> mayLeave = false;
    Frame(1);
    fake_engine::OnRecognize([&](const IMG&, RPLATE*) {
        isRecognizing = true;
        while (!mayLeave) {
            std::this_thread::yield();
        }
        EXPECT_FALSE(hasApplied);
        return 0;
    });
    std::thread frames([&] { Frame(2); });
    while (!isRecognizing) {
        std::this_thread::yield();
    }
    std::thread applies([&] {
        Settings().ApplySettings();
        hasApplied = true;
    });
    for (int round = 0; round < 1000; ++round) {
        std::this_thread::yield();
    }
    mayLeave = true;
    frames.join();
    applies.join();
    EXPECT_EQ(Detector().plateRangeMax, -1) << "applied after the frame, which had set the range";
}

TEST_F(EngineThreads, TwoDetectorsSettingsAndPollsMayRunConcurrently) {
    constexpr int rounds = 150;
    diagnostics::SetDebugLevel(1);
    Detector();
    const DetectorPointer second(new ProbeDetector(host.Peer(), host.Object()));
    ReportAtOnce();
    // Restarts polling at its highest rate. The detectors' restarts have ended it, unless a poll was restarting then.
    const auto launcher = GetServerLauncher();
    launcher->PollTimeoutThread::Stop();
    launcher->SetPeriod(1);
    std::atomic<int> polls = 0;
    launcher->PollTimeoutThread::Start([&] {
        launcher->OnTimeout();
        ++polls;
    });
    std::atomic<int> found = 0;
    fake_engine::OnRecognize([&](const IMG&, RPLATE* plates) {
        const int x = found++ % 500;
        plates[0] = RecordOf({.left = x, .right = x + 60});
        plates[1] = RecordOf({.text = "ZZ999Z", .left = 500 - x, .top = 300, .right = 560 - x, .bottom = 330});
        return 2;
    });
    std::atomic<int> failures = 0;
    std::atomic<int> running = 2;
    std::vector<std::thread> threads;
    for (ProbeDetector* const each : {detector.get(), second.get()}) {
        threads.emplace_back([&, each] {
            OKM8::Analytics::IMediaReceiver& receiver = *each;
            OKM8::Analytics::IMediaReceiverSingle2& single = *each;
            const OKM8::FrameArea area = {1, 2, 3, 4};
            for (int round = 0; round < rounds; ++round) {
                const auto time = static_cast<std::uint64_t>(round) * 200;
                const std::uint32_t width = round % 20 == 0 ? 32 : 64;
                failures += receiver.Receive(recording_host::MakeFrame(counts, width, 48, time));
                failures +=
                    single.ReceiveSingle(recording_host::MakeFrame(counts, width, 48, time + 100), &area, nullptr);
            }
            --running;
        });
    }
    threads.emplace_back([&] {
        for (int round = 0; running != 0; ++round) {
            for (ProbeDetector* const each : {detector.get(), second.get()}) {
                OKM8::IAsyncAdjuster& settings = *each;
                settings.SetIntValue("zone_width", round % 100);
                settings.SetIntValue("zone_width_min", round % 10);
                settings.SetBoolValue("use_area", round % 2 == 0);
                settings.SetIntValue("area_right", round % 100);
                settings.SetBoolValue("use_half_cadr", round % 3 == 0);
                settings.SetBoolValue("result_ready", true);
                settings.SetIntValue("result_rec_count", round % 5);
                settings.SetStringValue("name", std::string(static_cast<std::size_t>(round % 40), 'n').c_str());
                if (round % 10 == 0) {
                    settings.ApplySettings();
                }
                OKM8::IErrorInfoProvider& errors = *each;
                failures += errors.GetErrorCode() == 1 ? 1 : 0;
            }
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(CompletesWithin(1min, [&] {
        while (polls == 0) {
            std::this_thread::yield();
        }
    })) << "the launcher never polled";
    launcher->PollTimeoutThread::Stop();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(fake_engine::RecognizeCalls().size(), 4u * rounds);
    EXPECT_EQ(detector->frameCount, 2u * rounds);
    EXPECT_EQ(second->nextPlateId, 4u * rounds);
    EXPECT_FALSE(host.Events().empty());
    fake_engine::OnRecognize(nullptr);
}

TEST_F(EngineThreads, RefusedRangesOfTwoDetectorsRestartOneServerDuringPolls) {
    constexpr int rounds = 40;
    Detector();
    const DetectorPointer second(new ProbeDetector(host.Peer(), host.Object()));
    const auto launcher = GetServerLauncher();
    launcher->PollTimeoutThread::Stop();
    launcher->SetPeriod(1);
    launcher->PollTimeoutThread::Start([launcher] { launcher->OnTimeout(); });
    std::atomic<int> calls = 0;
    fake_engine::OnSetPlateRange([&](int, int) { return calls++ % 3 != 0; });
    std::atomic<int> failures = 0;
    std::vector<std::thread> threads;
    for (ProbeDetector* const each : {detector.get(), second.get()}) {
        threads.emplace_back([&, each] {
            OKM8::Analytics::IMediaReceiver& receiver = *each;
            for (int round = 0; round < rounds; ++round) {
                failures +=
                    receiver.Receive(recording_host::MakeFrame(counts, 64, 48, static_cast<std::uint64_t>(round)));
                failures += fake_processes::Running().size() > 1 ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(fake_engine::RecognizeCalls().size(), 2u * rounds);
    launcher->PollTimeoutThread::Stop();
    fake_engine::OnSetPlateRange(nullptr);
}

}  // namespace
