// Construction and destruction of a detector, and their effect on the recognition server and the host's buffers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/weak_ptr.hpp>
#include <cstring>
#include <random>
#include <stdexcept>
#include <thread>

#include "tests/engine/probe_detector.h"
#include "tests/support/wait_until.h"

namespace {

using engine_tests::DetectorPointer;
using engine_tests::EngineTest;
using engine_tests::Error;
using engine_tests::FoundPlate;
using engine_tests::ProbeDetector;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class Lifecycle : public EngineTest {
  protected:
    ~Lifecycle() override { End(); }

    // After a stop the launcher no longer polls, so that only the detector starts and stops the server.
    static void EndPolling() {
        GetServerLauncher()->Stop();
        fake_processes::Reset();
    }

    std::size_t TimesWritten(const std::string& line) const {
        const std::vector<std::string> texts = output.Texts();
        return static_cast<std::size_t>(std::count(texts.begin(), texts.end(), line));
    }
};

TEST_F(Lifecycle, ANewDetectorTracesItsCreationAndTheRestartOfTheServer) {
    EndPolling();
    diagnostics::SetDebugLevel(2);
    output.Clear();
    Detector();
    EXPECT_THAT(Trace(), ElementsAre(LineOf("VexlaneDetectorImpl", "Create vexlane detector")));
    EXPECT_EQ(TimesWritten("ServerLauncher: Restart server launcher"), 1u);
    EXPECT_EQ(output.Texts().front().find("vexlane["), 0u) << "its own line is first";
    EXPECT_EQ(fake_processes::Running().size(), 1u);
    EXPECT_THAT(fake_processes::JournalOf("terminate"), IsEmpty()) << "nothing ran before";
    EXPECT_EQ(ErrorState(), Error(0, ""));
}

TEST_F(Lifecycle, ANewDetectorIsSilentAtLevel0) {
    Detector();
    EXPECT_THAT(output.Texts(), IsEmpty());
}

TEST_F(Lifecycle, EveryNewDetectorRestartsTheSharedServer) {
    EndPolling();
    Detector();
    const auto first = fake_processes::Running();
    ASSERT_EQ(first.size(), 1u);
    const DetectorPointer second(new ProbeDetector(host.Peer(), host.Object()));
    ASSERT_EQ(fake_processes::Running().size(), 1u);
    EXPECT_NE(fake_processes::Running(), first);
    EXPECT_EQ(fake_processes::JournalOf("terminate").size(), 1u);
    EXPECT_EQ(fake_processes::JournalOf("start").size(), 2u);
}

TEST_F(Lifecycle, AServerIsRunningOnceTheFirstDetectorExists) {
    Detector();  // the first poll may be before or after this, and may be replacing the server at this moment
    EXPECT_TRUE(WaitUntil([] { return fake_processes::Running().size() == 1; }));
}

TEST_F(Lifecycle, ANewDetectorEndsPollingWhenAServerRuns) {
    EndPolling();
    Detector();
    ASSERT_EQ(fake_processes::Running().size(), 1u);
    const auto launcher = GetServerLauncher();
    launcher->PollTimeoutThread::Start([launcher] { launcher->OnTimeout(); });
    EXPECT_TRUE(launcher->IsRunning());
    const DetectorPointer second(new ProbeDetector(host.Peer(), host.Object()));
    EXPECT_FALSE(launcher->IsRunning());
    EXPECT_EQ(fake_processes::Running().size(), 1u);
}

TEST_F(Lifecycle, ANewDetectorLeavesPollingOnWhenNoServerRuns) {
    EndPolling();
    fake_processes::FailStart(2);
    const auto launcher = GetServerLauncher();
    launcher->PollTimeoutThread::Start([launcher] { launcher->OnTimeout(); });
    Detector();
    EXPECT_TRUE(launcher->IsRunning());
    EXPECT_THAT(fake_processes::JournalOf("terminate"), IsEmpty());
    End();
    EXPECT_FALSE(launcher->IsRunning()) << "a destroyed detector ends it";
}

TEST_F(Lifecycle, EveryDestroyedDetectorStopsTheServerForAllAndTheOthersContinue) {
    EndPolling();
    Detector();
    { const DetectorPointer second(new ProbeDetector(host.Peer(), host.Object())); }
    EXPECT_THAT(fake_processes::Running(), IsEmpty());
    EXPECT_EQ(Frame(1), 0);
    EXPECT_THAT(fake_processes::Running(), IsEmpty()) << "an accepted range starts nothing";
    fake_engine::OnSetPlateRange([](int, int) { return false; });
    EXPECT_EQ(Frame(2), 0);
    EXPECT_EQ(fake_processes::Running().size(), 1u) << "a refused one restarts it";
    End();
    EXPECT_THAT(fake_processes::Running(), IsEmpty());
}

TEST_F(Lifecycle, AServerThatCannotBeStartedDoesNotAffectTheDetector) {
    EndPolling();
    fake_processes::FailStart(2);
    Detector();
    EXPECT_EQ(ErrorState(), Error(0, ""));
    EXPECT_EQ(Frame(1), 0);
}

// Throws for one line, such as the launcher's line in the constructor.
class FailingOutput final : public platform::DebugOutputSink {
  public:
    FailingOutput(const char* refused, RecordingDebugOutput& others)
        : refusedText_(refused), rest_(others), before_(platform::ExchangeDebugOutputSink(this)) {}
    ~FailingOutput() override { platform::ExchangeDebugOutputSink(before_); }
    void Write(const char* text) override {
        if (std::strstr(text, refusedText_) != nullptr) {
            throw std::runtime_error("no room for lines");
        }
        rest_.Write(text);
    }
    void Write(const wchar_t* text) override { rest_.Write(text); }

  private:
    const char* refusedText_;
    RecordingDebugOutput& rest_;
    platform::DebugOutputSink* before_;
};

TEST_F(Lifecycle, AFailureToRestartTheServerIsTheErrorOfAUsableDetector) {
    EndPolling();
    diagnostics::SetDebugLevel(1);
    output.Clear();
    {
        const FailingOutput failing("ServerLauncher: Restart server launcher", output);
        Detector();
    }
    EXPECT_EQ(ErrorState(), Error(1, "no room for lines"));
    EXPECT_THAT(Trace(), ElementsAre(LineOf("VexlaneDetectorImpl", "Create vexlane detector"),
                                     LineOf("VexlaneDetectorImpl", "no room for lines")));
    EXPECT_EQ(Frame(1), 0);
    EXPECT_EQ(ErrorState(), Error(0, ""));
    EXPECT_EQ(fake_engine::RecognizeCalls().size(), 1u);
    EXPECT_EQ(Settings().SetIntValue("zone_width", 5), 0);
}

TEST_F(Lifecycle, AFailureOfTheFirstLineIsCaughtTooAndTheServerIsNotRestarted) {
    EndPolling();
    diagnostics::SetDebugLevel(1);
    {
        const FailingOutput failing("Create vexlane detector", output);
        Detector();
    }
    EXPECT_EQ(ErrorState(), Error(1, "no room for lines"));
    EXPECT_THAT(fake_processes::JournalOf("start"), IsEmpty());
}

TEST_F(Lifecycle, AFailureToStopTheServerDoesNotLeaveTheDestructor) {
    EndPolling();
    Find(FoundPlate{});
    Frame(1);
    ASSERT_EQ(counts.released, 0);
    diagnostics::SetDebugLevel(1);
    output.Clear();
    const FailingOutput failing("ServerLauncher: Stop server launcher", output);
    EXPECT_NO_THROW(End());
    EXPECT_THAT(Trace(), ElementsAre(LineOf("~VexlaneDetectorImpl", "no room for lines"),
                                     LineOf("OnMayReleaseLicencePlate", "Remove plate ID = 0, still left = 0")));
    EXPECT_EQ(counts.released, 1);
}

// Destruction during tracks.

TEST_F(Lifecycle, DestructionRaisesNoEventsAndRemovesUnreportedReadingsFromAnEmptyTable) {
    diagnostics::SetDebugLevel(1);
    Find({RecordOf({}), RecordOf({.text = "ZZ999Z", .left = 400, .right = 460})});
    Frame(1);
    EXPECT_EQ(counts.released, 0);
    EXPECT_EQ(Detector().pendingResults.size(), 2u);
    output.Clear();
    End();
    EXPECT_THAT(host.Events(), IsEmpty());
    EXPECT_THAT(Trace(),
                UnorderedElementsAre(LineOf("OnMayReleaseLicencePlate", "Remove plate ID = 0, still left = 0"),
                                     LineOf("OnMayReleaseLicencePlate", "Remove plate ID = 1, still left = 0")));
    EXPECT_EQ(counts.released, 1);
}

TEST_F(Lifecycle, DestructionStopsTheServerThenEmptiesTheTableAndThenReleasesTheTracker) {
    EndPolling();
    diagnostics::SetDebugLevel(1);
    Find({RecordOf({}), RecordOf({.text = "ZZ999Z", .left = 400, .right = 460})});
    Frame(1);
    ASSERT_EQ(Detector().pendingResults.size(), 2u);
    const auto tracker = boost::weak_ptr<ILicencePlateTracker>(Detector().tracker);
    output.Clear();
    End();
    EXPECT_TRUE(tracker.expired());
    const std::vector<std::string> texts = output.Texts();
    ASSERT_EQ(texts.size(), 4u);
    EXPECT_EQ(texts[0], "ServerLauncher: Stop server launcher");
    EXPECT_EQ(texts[1], "ServerLauncher: Terminated server launcher");
    for (const std::string& text : {texts[2], texts[3]}) {
        EXPECT_THAT(text, testing::HasSubstr("Remove plate ID = "));
        EXPECT_THAT(text, testing::HasSubstr("still left = 0")) << "the table is empty by then";
    }
}

TEST_F(Lifecycle, DestructionRemovesTheReadingsThatTheTrackStillHolds) {
    diagnostics::SetDebugLevel(1);
    for (int frame = 0; frame < 6; ++frame) {
        Find(FoundPlate{.left = 100 + 40 * frame, .right = 160 + 40 * frame});
        Frame(1000 + 100 * static_cast<std::uint64_t>(frame));
    }
    // The first, which is also the best, the one before the last, and the last.
    EXPECT_EQ(Detector().pendingResults.size(), 3u);
    output.Clear();
    End();
    EXPECT_THAT(host.Events(), IsEmpty());
    EXPECT_THAT(Trace(),
                UnorderedElementsAre(LineOf("OnMayReleaseLicencePlate", "Remove plate ID = 0, still left = 0"),
                                     LineOf("OnMayReleaseLicencePlate", "Remove plate ID = 4, still left = 0"),
                                     LineOf("OnMayReleaseLicencePlate", "Remove plate ID = 5, still left = 0")));
}

TEST_F(Lifecycle, DestructionDoesNotRemoveAReportedReading) {
    diagnostics::SetDebugLevel(1);
    ReportAtOnce();
    Find(FoundPlate{});
    Frame(1);
    EXPECT_EQ(host.Events().size(), 1u);
    output.Clear();
    End();
    EXPECT_THAT(Trace(), IsEmpty());
}

TEST_F(Lifecycle, DestructionBeforeTheFirstFrameStopsTheServerToo) {
    EndPolling();
    Detector();
    ASSERT_EQ(fake_processes::Running().size(), 1u);
    End();
    EXPECT_THAT(fake_processes::Running(), IsEmpty());
    EXPECT_EQ(fake_processes::JournalOf("terminate").size(), 1u);
}

TEST_F(Lifecycle, AFrameIsReleasedWithItsLastPendingPlate) {
    ReportAtOnce();
    Settings().SetIntValue("result_rec_count", 2);
    Find({RecordOf({}), RecordOf({.text = "ZZ999Z", .left = 400, .right = 460})});
    Frame(1);
    EXPECT_EQ(counts.released, 0);
    Find(FoundPlate{.left = 120, .right = 180});
    Frame(100);
    EXPECT_EQ(host.Events().size(), 1u);
    EXPECT_EQ(counts.released, 0) << "the other plate of the first frame is still pending, and so is the new reading";
    FindNothing();
    Frame(3500);
    EXPECT_EQ(host.Events().size(), 2u) << "lost, and reported as such";
    EXPECT_EQ(counts.made - counts.released, 0);
}

// The host's Release is called without the lock of the results.

class Releases : public Lifecycle {
  protected:
    ~Releases() override { End(); }

    // Plays a frame whose release checks whether another thread could take the lock.
    void WatchedFrame(std::uint64_t time) {
        counts.onCall =
            recording_host::On(recording_host::Operation::Release, [this, &mutex = Detector().resultsMutex] {
                std::thread([&] {
                    const boost::mutex::scoped_try_lock lock(mutex);
                    whetherFree.push_back(lock.owns_lock());
                }).join();
            });
        OKM8::Analytics::IMediaReceiver& receiver = Detector();
        EXPECT_EQ(receiver.Receive(recording_host::MakeFrame(counts, 64, 48, time)), 0);
    }

    std::vector<bool> whetherFree;
};

TEST_F(Releases, OfAReportedPlateAreOutsideTheLock) {
    ReportAtOnce();
    Find(FoundPlate{});
    WatchedFrame(1);
    EXPECT_THAT(whetherFree, ElementsAre(true));
}

TEST_F(Releases, OfAnUnreportedReadingAreOutsideTheLock) {
    for (int frame = 0; frame < 4; ++frame) {
        Find(FoundPlate{.left = 5 * frame, .right = 60 + 5 * frame});
        WatchedFrame(1000 + 100 * static_cast<std::uint64_t>(frame));
    }
    EXPECT_THAT(whetherFree, ElementsAre(true));
}

TEST_F(Releases, OfAReplacedResultAreOutsideTheLock) {
    Find(FoundPlate{});
    WatchedFrame(1000);
    Detector().nextPlateId = 0x100000000u;
    Find(FoundPlate{.text = "ZZ999Z"});
    WatchedFrame(1100);
    EXPECT_THAT(whetherFree, ElementsAre(true));
}

TEST_F(Releases, OfADestroyedDetectorAreOutsideTheLock) {
    Find(FoundPlate{});
    WatchedFrame(1000);
    Find(FoundPlate{.text = "ZZ999Z"});
    WatchedFrame(1100);
    EXPECT_THAT(whetherFree, IsEmpty());
    End();
    EXPECT_THAT(whetherFree, ElementsAre(true, true));
}

// Long random runs.

class RandomRuns : public Lifecycle, public testing::WithParamInterface<unsigned> {};

TEST_P(RandomRuns, ReleaseEveryBufferExactlyOnce) {
    std::mt19937 random(GetParam());
    const auto below = [&](std::uint32_t bound) { return static_cast<int>(random() % bound); };
    Settings().SetBoolValue("result_ready", below(2) == 0);
    Settings().SetIntValue("result_rec_count", below(6));
    Settings().SetIntValue("result_wait_time", below(10));
    const std::vector<std::string> texts = {"AB123C",
                                            "AB128C",
                                            "ZZ999Z",
                                            "\xBE\xA9"
                                            "A1234",
                                            "",
                                            "ABCDEFGHIJKLMNOP"};
    fake_engine::OnRecognize([&](const IMG& image, RPLATE* plates) {
        const int count = below(8) - 1;
        for (int index = 0; index < std::min(count, 5); ++index) {
            RPLATE& plate = plates[index];
            const int x = below(image.width);
            const int y = below(image.height);
            plate = RecordOf({texts[static_cast<std::size_t>(below(6))], x, y, x + below(200), y + below(50),
                              static_cast<double>(below(2000)) - 500.0});
            if (below(20) == 0) {
                plate.corner3 = {2147483647, -2147483647};
            }
        }
        if (below(25) == 0) {
            throw std::runtime_error("sometimes");
        }
        if (below(25) == 0) {
            throw 1;
        }
        return count;
    });
    fake_engine::OnSetPlateRange([&](int, int) { return below(10) != 0; });
    std::uint64_t time = 100000;
    int handled = 0;
    for (int frame = 0; frame < 1500; ++frame) {
        host.refusals = {};
        switch (below(30)) {
            case 0:
                host.refusals.factory = true;
                break;
            case 1:
                host.refusals.target = true;
                break;
            case 2:
                host.refusals.arguments = true;
                break;
            case 3:
                Settings().ApplySettings();
                break;
            case 4:
                time -= 5000;
                break;
            case 5:
                time += 100000;
                break;
            default:
                time += static_cast<std::uint64_t>(below(400));
                break;
        }
        recording_host::BufferOptions options;
        options.width = below(10) == 0 ? 48 : 64;
        options.height = below(30) == 0 ? 0 : 32;
        options.isComposite = below(30) != 0;
        options.timeStamp = time;
        options.size = below(30) == 0 ? 5 : std::int64_t{options.width} * options.height * 3 / 2;
        if (below(20) != 0) {
            options.pixels.assign(static_cast<std::size_t>(options.size), 7);
        }
        OKM8::MFF::IMultimediaBuffer* const buffer = recording_host::MakeBuffer(counts, options);
        if (below(4) == 0) {
            OKM8::Analytics::IMediaReceiverSingle2& receiver = Detector();
            const OKM8::FrameArea area = {below(50), below(50), below(50), below(50)};
            handled += receiver.ReceiveSingle(buffer, &area, nullptr) == 0 ? 1 : 0;
        } else {
            OKM8::Analytics::IMediaReceiver& receiver = Detector();
            handled += receiver.Receive(buffer) == 0 ? 1 : 0;
        }
        ASSERT_LE(counts.released, counts.made);
        ASSERT_LE(counts.made - counts.released, static_cast<int>(Detector().pendingResults.size()));
    }
    EXPECT_GT(handled, 500);
    EXPECT_GT(host.Events().size(), 10u);
    for (const auto& event : host.Events()) {
        EXPECT_EQ(event.raised + event.discarded, 1);
    }
    End();
    EXPECT_EQ(counts.made, 1500);
    EXPECT_EQ(counts.released, 1500);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomRuns, testing::Values(1u, 2u, 3u, 4u));

}  // namespace
