// Allocation failures at each allocation of a host's call in turn: at that one, or at all from that one to the call's
// end. The module is linked in, so that it uses this program's operator new on every system.

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "sdk/contract_names.h"
#include "sdk/module.h"
#include "server/server_launcher.h"
#include "tests/support/allocation_count.h"
#include "tests/support/completes_within.h"
#include "tests/support/fake_engine.h"
#include "tests/support/fake_processes.h"
#include "tests/support/recording_debug_output.h"
#include "tests/support/scratch_registry.h"
#include "tools/validate/recording_host.h"

extern "C" OKM8::Analytics::InitializeModuleFunction InitializeModule;
extern "C" OKM8::Analytics::GetModuleFunction GetModule;
extern "C" OKM8::Analytics::FinalizeModuleFunction FinalizeModule;

namespace {

using namespace std::chrono_literals;
namespace ContractName = OKM8::ContractName;
using allocation_count::Failing;
using allocation_count::Failure;
using OKM8::Analytics::IDetector;
using recording_host::RecordedEvent;

constexpr std::uint64_t mostAllocations = 20000;  // of one call; more means that the loop does not end

// What the engine finds in the current frame, and how often it received an unconverted frame.
std::vector<RPLATE> found;
int unconverted = 0;

RPLATE PlateAt(const std::string& text, int top) {
    return fake_engine::Plate(text, 540.0, 10, top, 30, top + 6);
}

struct FailureMode {
    const char* name;
    Failing failing;
    const char* debugLevel;
};

void PrintTo(const FailureMode& mode, std::ostream* stream) {
    *stream << mode.name;
}

const FailureMode modes[] = {{"Once", Failing::One, "0"},
                             {"OnceWithTraces", Failing::One, "1"},
                             {"FromThenOn", Failing::AllFromThenOn, "0"},
                             {"FromThenOnWithTraces", Failing::AllFromThenOn, "1"}};

class OutOfMemoryTest : public testing::Test {
  protected:
    explicit OutOfMemoryTest(const FailureMode& givenMode) : mode(givenMode) {
        fake_engine::Reset();
        fake_engine::StopRecording();
        fake_engine::OnRecognize([](const IMG& image, RPLATE* plates) {
            unconverted += image.pixels[0] == image.pixels[1] ? 1 : 0;
            std::copy(found.begin(), found.end(), plates);
            return static_cast<int>(found.size());
        });
        fake_processes::Reset();
        registry.StoreText(test_support::ScratchRegistry::Hive::LocalMachine, "SOFTWARE\\Tellumark\\KORA\\DEBUG",
                           "DebugLevel", mode.debugLevel);
        found.clear();
        unconverted = 0;
    }

    ~OutOfMemoryTest() override {
        ExpectAllBuffersReleased();
        FinalizeModule();
    }

    // Runs the action once for each of its allocations, which then fails, and finally without a failure. No allocation
    // fails in `prepare`, which runs before it, and in `check`, which runs after it. Returns the action's number of
    // allocations.
    std::uint64_t AtEachAllocation(const std::function<void()>& prepare, const std::function<void()>& action,
                                   const std::function<void()>& check) {
        for (std::uint64_t number = 1; number < mostAllocations; ++number) {
            const testing::ScopedTrace trace(__FILE__, __LINE__, "allocation " + std::to_string(number));
            prepare();
            bool hasThrown = false;
            Failure failure(number, mode.failing);
            try {
                action();
            } catch (...) {
                hasThrown = true;
            }
            const bool hasFailed = failure.End();
            EXPECT_FALSE(hasThrown);
            check();
            if (!hasFailed || HasFailure()) {
                return number - 1;
            }
        }
        ADD_FAILURE() << "too many allocations";
        return 0;
    }

    // Creates a module with a new host.
    void Initialize() {
        ExpectAllBuffersReleased();
        FinalizeModule();
        host = std::make_unique<recording_host::RecordingHost>();
        ASSERT_EQ(InitializeModule(host->Object()), 0);
        ASSERT_NE(GetModule(), nullptr);
    }

    // Creates a detector that reports a plate with that many readings.
    void MakeDetector(std::int32_t readings) {
        Initialize();
        detector = GetModule()->CreateDetector(nullptr, host->Peer());
        ASSERT_NE(detector, nullptr);
        CompleteTracksAfter(readings);
    }

    void CompleteTracksAfter(std::int32_t readings) {
        EXPECT_EQ(Settings().SetBoolValue("result_ready", true), 0);
        EXPECT_EQ(Settings().SetIntValue("result_rec_count", readings), 0);
        EXPECT_EQ(Settings().SetIntValue("result_wait_time", 1000), 0);
        Settings().ApplySettings();
        EXPECT_EQ(Errors().GetErrorCode(), 0);
    }

    template <class Interface>
    Interface& Query(const char* name) {
        return *static_cast<Interface*>(detector->QueryContract(name));
    }
    OKM8::IAsyncAdjuster& Settings() { return Query<OKM8::IAsyncAdjuster>(ContractName::IAsyncAdjuster); }
    OKM8::IErrorInfoProvider& Errors() { return Query<OKM8::IErrorInfoProvider>(ContractName::IErrorInfoProvider); }
    OKM8::Analytics::IMediaReceiverSingle2& Receiver() {
        return Query<OKM8::Analytics::IMediaReceiverSingle2>(ContractName::IMediaReceiverSingle2);
    }

    // A frame of one colour that is not grey.
    OKM8::MFF::IMultimediaBuffer* MakeFrame(std::uint32_t width = 64) {
        constexpr std::uint32_t height = 48;
        recording_host::BufferOptions options;
        options.width = width;
        options.height = height;
        options.pixels.assign(std::size_t{width} * height, 128);
        options.pixels.resize(std::size_t{width} * height * 3 / 2, 80);
        options.timeStamp = time += 40;
        return recording_host::MakeBuffer(counts, options);
    }

    std::int32_t PlayFrame(const std::vector<RPLATE>& plates) {
        found = plates;
        return Receiver().ReceiveSingle(MakeFrame(), nullptr, nullptr);
    }

    std::set<std::string> RaisedTexts() const {
        std::set<std::string> texts;
        for (const RecordedEvent& event : host->Events()) {
            if (event.raised == 1) {
                texts.insert(event.targets.at(0).Find("lp_wnum")->text);
            }
        }
        return texts;
    }

    // The next frames succeed and their plates are reported. On another thread, which a lock that is still held would
    // block.
    void ExpectRecovery() {
        constexpr std::uint64_t tracksAreLost = 100000;
        const std::vector<RPLATE> plates = {PlateAt("LATER1", 4), PlateAt("RETAL2", 36)};
        std::vector<std::int32_t> outcomes;
        ASSERT_TRUE(CompletesWithin(1min, [&] {
            for (const std::vector<RPLATE>& next : {std::vector<RPLATE>{}, plates, std::vector<RPLATE>{}}) {
                time += tracksAreLost;
                outcomes.push_back(PlayFrame(next));
            }
        })) << "a lock is still held";
        EXPECT_EQ(outcomes, std::vector<std::int32_t>({0, 0, 0})) << Errors().GetErrorMessage();
        EXPECT_EQ(unconverted, 0) << "the engine reads more bytes than such a frame has";
        const std::set<std::string> texts = RaisedTexts();
        EXPECT_TRUE(texts.contains("LATER1") && texts.contains("RETAL2")) << "a later plate is missing";
        for (const RecordedEvent& event : host->Events()) {
            EXPECT_EQ(event.raised + event.discarded, 1) << "a raiser must be ended once";
        }
    }

    void ExpectAllBuffersReleased() {
        if (detector != nullptr) {
            std::exchange(detector, nullptr)->Destroy();
        }
        EXPECT_EQ(counts.released, counts.made);
    }

    FailureMode mode;
    test_support::ScratchRegistry registry;
    recording_host::BufferCounts counts;
    std::unique_ptr<recording_host::RecordingHost> host = std::make_unique<recording_host::RecordingHost>();
    RecordingDebugOutput output;
    IDetector* detector = nullptr;
    std::uint64_t time = 0;
};

class OutOfMemory : public OutOfMemoryTest, public testing::WithParamInterface<FailureMode> {
  protected:
    OutOfMemory() : OutOfMemoryTest(GetParam()) {}
};

INSTANTIATE_TEST_SUITE_P(Fails, OutOfMemory, testing::ValuesIn(modes),
                         [](const auto& instance) { return std::string(instance.param.name); });

// The exports and the construction of the detector.

TEST_P(OutOfMemory, InCreateDetectorThrowsBadAllocOrReturnsAWorkingDetector) {
    bool hasThrown = false;
    const std::uint64_t allocations = AtEachAllocation(
        [&] {
            Initialize();
            hasThrown = false;
        },
        [&] {
            try {
                detector = GetModule()->CreateDetector(nullptr, host->Peer());
            } catch (const std::bad_alloc&) {
                hasThrown = true;
            }
        },
        [&] {
            EXPECT_NE(detector != nullptr, hasThrown);
            if (detector == nullptr) {
                detector = GetModule()->CreateDetector(nullptr, host->Peer());
            }
            CompleteTracksAfter(1);
            ExpectRecovery();
        });
    EXPECT_GT(allocations, 0u);
}

TEST_P(OutOfMemory, InDestroyStillReleasesEverything) {
    std::uint64_t made = 0;
    AtEachAllocation(
        [&] {
            MakeDetector(1000);  // all readings are still pending
            PlayFrame({PlateAt("ABBBBBBBBBBBBBBA", 4), PlateAt("OTHER2", 36)});
            PlayFrame({PlateAt("ABBBBBBBBBBBBBBB", 4), PlateAt("OTHER3", 36)});
            EXPECT_LT(counts.released, counts.made);
            ++made;
        },
        [&] { std::exchange(detector, nullptr)->Destroy(); }, [&] { EXPECT_EQ(counts.released, counts.made); });
    EXPECT_GT(made, 0u);
}

TEST_P(OutOfMemory, InFinalizeModuleDoesNotReachTheHost) {
    AtEachAllocation([&] { Initialize(); }, [] { FinalizeModule(); }, [] { EXPECT_EQ(GetModule(), nullptr); });
}

// Settings and error state.

TEST_P(OutOfMemory, InASetterRefusesOnlyThatValue) {
    const std::string longName = "a name that does not fit into a string without memory of its own";
    const std::string longText = "a text that does not fit into a string without memory of its own";
    const std::vector<std::pair<std::string, std::function<std::int32_t()>>> setters = {
        {"name", [&] { return Settings().SetStringValue("name", longText.c_str()); }},
        {"result_wait_time", [&] { return Settings().SetIntValue("result_wait_time", 1000); }},
        {"use_area", [&] { return Settings().SetBoolValue("use_area", false); }},
        {longName, [&] { return Receiver().SetStringValue(longName.c_str(), longText.c_str()); }},
        {longName, [&] { return Receiver().SetIntValue(longName.c_str(), 1); }},
        {longName, [&] { return Receiver().SetBoolValue(longName.c_str(), true); }},
        {longName, [&] { return Receiver().SetDoubleValue(longName.c_str(), 1.0); }},
    };
    for (const auto& [name, set] : setters) {
        const testing::ScopedTrace trace(__FILE__, __LINE__, name);
        std::int32_t outcome = -1;
        AtEachAllocation([&] { MakeDetector(1); }, [&, &set = set] { outcome = set(); },
                         [&, &name = name, &set = set] {
                             EXPECT_EQ(Errors().GetErrorCode(), outcome);
                             const std::string text = Errors().GetErrorMessage();
                             if (outcome != 0) {
                                 EXPECT_EQ(outcome, OKM8::ErrorCode::RefusedSetting);
                                 EXPECT_TRUE(text == name || text.empty()) << text;
                             } else {
                                 EXPECT_EQ(text, "");
                             }
                             EXPECT_EQ(set(), 0);
                             ExpectRecovery();
                         });
        EXPECT_EQ(outcome, 0) << "accepted without a failure";
    }
}

TEST_P(OutOfMemory, InARefusedSetterKeepsTheCode) {
    const std::string longName(1000, 'n');  // longer than the reserved text
    AtEachAllocation([&] { MakeDetector(1); }, [&] { Settings().SetIntValue(longName.c_str(), 1); },
                     [&] { EXPECT_EQ(Errors().GetErrorCode(), OKM8::ErrorCode::RefusedSetting); });
}

TEST_P(OutOfMemory, InGetErrorMessageReturnsAnEmptyText) {
    const std::string longName(1000, 'n');  // longer than the reserved text
    const char* text = nullptr;
    const std::uint64_t allocations = AtEachAllocation(
        [&] {
            MakeDetector(1);
            Settings().SetIntValue(longName.c_str(), 1);
        },
        [&] { text = Errors().GetErrorMessage(); },
        [&] {
            EXPECT_TRUE(text == longName || std::string(text).empty()) << text;
            EXPECT_EQ(Errors().GetErrorMessage(), longName);
        });
    EXPECT_GT(allocations, 0u);
}

TEST_P(OutOfMemory, InApplySettingsSetsTheErrorStateAndTheNextFrameSucceeds) {
    for (const bool hasSeenFrames : {false, true}) {
        const std::uint64_t allocations = AtEachAllocation(
            [&] {
                MakeDetector(1);
                Settings().SetBoolValue("use_half_cadr", true);
                if (hasSeenFrames) {
                    EXPECT_EQ(PlayFrame({}), 0);
                }
            },
            [&] { Settings().ApplySettings(); },
            [&] {
                EXPECT_TRUE(Errors().GetErrorCode() == 0 || Errors().GetErrorCode() == OKM8::ErrorCode::Failed);
                ExpectRecovery();
            });
        EXPECT_GT(allocations, 0u);
    }
}

// Frames.

struct FrameOf {
    std::vector<RPLATE> plates;
    std::uint64_t pause = 0;
    std::uint32_t width = 64;
};

struct Scene {
    const char* name;
    std::int32_t readings;        // the number that completes a track
    std::vector<FrameOf> frames;  // allocations fail in the last one
};

void PrintTo(const Scene& scene, std::ostream* stream) {
    *stream << scene.name;
}

const Scene scenes[] = {
    {"TheFirst", 1, {{{PlateAt("AAAAAA", 4), PlateAt("ZZZZZZ", 36)}}}},
    {"OfNewPlates",
     1,
     {{{PlateAt("AAAAAA", 4), PlateAt("ZZZZZZ", 36)}},
      {{PlateAt("BBBBBB", 4), PlateAt("YYYYYY", 36), PlateAt("FIFTEENLETTERSA", 20)}}}},
    {"OfAnotherSize", 1, {{{}}, {{PlateAt("AAAAAA", 4)}, 0, 66}}},
    {"OfOtherTextsOfTheSamePlates",
     3,
     {{{PlateAt("ABCDEF", 4), PlateAt("ZYXWVU", 36)}},
      {{PlateAt("ABCDEG", 4), PlateAt("ZYXWVU", 36)}},
      {{PlateAt("AACDEF", 4), PlateAt("ZYXWVV", 36), PlateAt("NEW123", 20)}}}},
    {"AfterWhichTracksAreLost",
     1000,
     {{{PlateAt("ABCDEF", 4), PlateAt("ZYXWVU", 36)}}, {{PlateAt("ABCDEG", 4)}}, {{PlateAt("LAST12", 20)}, 100000}}},
};

class OutOfMemoryInAFrame : public OutOfMemoryTest, public testing::WithParamInterface<std::tuple<FailureMode, Scene>> {
  protected:
    OutOfMemoryInAFrame() : OutOfMemoryTest(std::get<0>(GetParam())) {}
};

TEST_P(OutOfMemoryInAFrame, LeavesAWorkingDetector) {
    const Scene& scene = std::get<1>(GetParam());
    std::int32_t outcome = -1;
    OKM8::MFF::IMultimediaBuffer* last = nullptr;
    const std::uint64_t allocations = AtEachAllocation(
        [&] {
            MakeDetector(scene.readings);
            for (const FrameOf& frame : scene.frames) {
                time += frame.pause;
                found = frame.plates;
                last = MakeFrame(frame.width);
                if (&frame != &scene.frames.back()) {
                    EXPECT_EQ(Receiver().ReceiveSingle(last, nullptr, nullptr), 0);
                }
            }
            EXPECT_EQ(Receiver().SetStringValue("value", "of this call"), 0);
        },
        [&] { outcome = Receiver().ReceiveSingle(last, nullptr, nullptr); },
        [&] {
            EXPECT_TRUE(outcome == 0 || outcome == OKM8::ErrorCode::Failed) << outcome;
            EXPECT_EQ(Errors().GetErrorCode(), outcome);
            ExpectRecovery();
            ExpectAllBuffersReleased();
        });
    EXPECT_GT(allocations, 10u);
    EXPECT_EQ(outcome, 0) << "without a failure";
}

TEST_P(OutOfMemory, InTheErrorOfAFrameLeavesNoOlderText) {
    // Each is longer than the reserved text.
    const std::runtime_error earlier(std::string(100, 'e'));
    const std::runtime_error later(std::string(1000, 'l'));
    std::string refusedName;
    std::runtime_error failure{""};
    // Throws after a setting has been refused, so that the error state holds an older text.
    recording_host::RecordingFrameDone callback([&](const recording_host::HostCall&) {
        Settings().SetIntValue(refusedName.c_str(), 1);
        throw failure;
    });
    OKM8::MFF::IMultimediaBuffer* last = nullptr;
    std::int32_t outcome = 0;
    const std::uint64_t allocations = AtEachAllocation(
        [&] {
            MakeDetector(1);
            refusedName.assign(200, 'n');
            failure = earlier;
            EXPECT_EQ(Receiver().ReceiveSingle(MakeFrame(), nullptr, &callback), OKM8::ErrorCode::Failed);
            EXPECT_EQ(Errors().GetErrorMessage(), std::string(earlier.what()));
            failure = later;
            last = MakeFrame();
        },
        [&] { outcome = Receiver().ReceiveSingle(last, nullptr, &callback); },
        [&] {
            EXPECT_EQ(outcome, OKM8::ErrorCode::Failed);
            EXPECT_EQ(Errors().GetErrorCode(), OKM8::ErrorCode::Failed);
            const std::string text = Errors().GetErrorMessage();
            EXPECT_TRUE(text == later.what() || text.empty() || text == std::bad_alloc().what()) << text;
        });
    EXPECT_GT(allocations, 3u);
}

INSTANTIATE_TEST_SUITE_P(Fails, OutOfMemoryInAFrame,
                         testing::Combine(testing::ValuesIn(modes), testing::ValuesIn(scenes)),
                         [](const auto& instance) {
                             return std::string(std::get<1>(instance.param).name) + std::get<0>(instance.param).name;
                         });

}  // namespace
