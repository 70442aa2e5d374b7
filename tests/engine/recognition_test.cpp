// One frame through the engine: settings, plate range, region, image, records, readings.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <boost/make_shared.hpp>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "image_transform/colour_converter.h"
#include "tests/engine/probe_detector.h"

namespace {

using engine_tests::EngineTest;
using engine_tests::Error;
using engine_tests::FoundPlate;
using fake_engine::RangeCall;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int32_t largest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t smallest = std::numeric_limits<std::int32_t>::min();

// Records what the detector passes to its tracker.
class RecordingTracker final : public ILicencePlateTracker {
  public:
    void ProcessPlates(const std::vector<LicencePlatePtr>& readings, std::uint64_t frameTime) override {
        calls.push_back({readings, frameTime});
    }
    void SetLostTimeout(std::uint64_t) override {}
    void FinishAll() override {}

    struct Call {
        std::vector<LicencePlatePtr> readings;
        std::uint64_t frameTime;
    };
    std::vector<Call> calls;
};

class Recognition : public EngineTest {
  protected:
    ~Recognition() override { End(); }

    RecordingTracker& UseRecordingTracker() {
        const auto tracker = boost::make_shared<RecordingTracker>();
        // Replaced after the first frame, because its new size applies the settings to the real tracker.
        Frame(0);
        Detector().tracker = tracker;
        fake_engine::Reset();
        return *tracker;
    }
};

// Settings.

struct EngineSetting {
    const char* name;
    char type;
};

class EachEngineSetting : public EngineTest, public testing::WithParamInterface<EngineSetting> {
  protected:
    std::int32_t Set(char type) {
        switch (type) {
            case 's':
                return Settings().SetStringValue(GetParam().name, "7");
            case 'd':
                return Settings().SetDoubleValue(GetParam().name, 7.0);
            case 'i':
                return Settings().SetIntValue(GetParam().name, 7);
            default:
                return Settings().SetBoolValue(GetParam().name, true);
        }
    }
    std::vector<std::int32_t> Members() {
        return {Detector().zoneWidth, Detector().zoneWidthMin, Detector().resultReady ? 7 : 0,
                Detector().resultWaitTime, Detector().resultRecCount};
    }
};

TEST_P(EachEngineSetting, AcceptsItsOwnTypeAndRefusesTheThreeOthers) {
    const std::vector<std::int32_t> fresh = Members();
    EXPECT_THAT(fresh, ElementsAre(100, 0, 0, 0, 0));
    for (const char type : {'s', 'd', 'i', 'b'}) {
        if (type != GetParam().type) {
            EXPECT_EQ(Set(type), 2816) << type;
            EXPECT_EQ(ErrorState(), Error(2816, GetParam().name)) << type;
            EXPECT_EQ(Members(), fresh);
        }
    }
    EXPECT_EQ(Set(GetParam().type), 0);
    EXPECT_EQ(ErrorState(), Error(0, ""));
    const std::vector<const char*> order = {"zone_width", "zone_width_min", "result_ready", "result_wait_time",
                                            "result_rec_count"};
    std::vector<std::int32_t> expected = fresh;
    for (std::size_t index = 0; index < order.size(); ++index) {
        if (std::string(order[index]) == GetParam().name) {
            expected[index] = 7;
        }
    }
    EXPECT_NE(expected, fresh);
    EXPECT_EQ(Members(), expected);
}

INSTANTIATE_TEST_SUITE_P(OfTheEngine, EachEngineSetting,
                         testing::Values(EngineSetting{"zone_width", 'i'}, EngineSetting{"zone_width_min", 'i'},
                                         EngineSetting{"result_ready", 'b'}, EngineSetting{"result_wait_time", 'i'},
                                         EngineSetting{"result_rec_count", 'i'}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(Recognition, TheBaseClassesSettingsAreAcceptedToo) {
    EXPECT_EQ(Settings().SetBoolValue("use_area", true), 0);
    EXPECT_EQ(Settings().SetIntValue("area_left", 3), 0);
    EXPECT_EQ(Settings().SetStringValue("id", "1"), 0);
    EXPECT_EQ(Settings().SetIntValue("area", 3), 2816);
}

TEST_F(Recognition, ANewDetectorHasSetNoRange) {
    EXPECT_EQ(Detector().plateRangeMax, -1);
    EXPECT_EQ(Detector().plateRangeMin, -1);
    EXPECT_EQ(Detector().nextPlateId, 0u);
    EXPECT_EQ(Detector().frameCount, 0u);
    EXPECT_EQ(Detector().trackerParameter, 3000);
    EXPECT_EQ(Detector().tracker, nullptr);
    EXPECT_THAT(Detector().pendingResults, IsEmpty());
    EXPECT_THAT(fake_engine::RangeCalls(), IsEmpty());
}

// The plate range.

TEST_F(Recognition, WithoutZoneSettingsPlatesOfAllWidthsAreSearched) {
    EXPECT_EQ(Frame(1, 1000, 480), 0);
    EXPECT_THAT(fake_engine::RangeCalls(), ElementsAre(RangeCall{0, 1000}));
}

TEST_F(Recognition, TheRangeIsSetBeforeEveryFrameSmallestFirstAndNeverTraced) {
    diagnostics::SetDebugLevel(1);
    Settings().SetIntValue("zone_width", 30);
    Settings().SetIntValue("zone_width_min", 10);
    EXPECT_EQ(Frame(1, 1000, 480), 0);
    EXPECT_EQ(Detector().plateRangeMax, 300);
    EXPECT_EQ(Detector().plateRangeMin, 100);
    EXPECT_EQ(Frame(2, 1000, 480), 0);
    Settings().SetIntValue("zone_width", 31);
    EXPECT_EQ(Frame(3, 1000, 480), 0);
    Settings().ApplySettings();
    EXPECT_EQ(Frame(4, 640, 480), 0);
    EXPECT_THAT(fake_engine::RangeCalls(),
                ElementsAre(RangeCall{100, 300}, RangeCall{100, 300}, RangeCall{100, 310}, RangeCall{64, 198}));
    EXPECT_THAT(Trace(), Each(testing::Not(testing::HasSubstr("Set plate range"))));
    EXPECT_EQ(Trace().size(), 5u) << "the constructor's line and one line for each frame";
}

TEST_F(Recognition, TheRangeWrapsAt32BitsAndIsRoundedTowardZero) {
    const auto rangeOf = [&](std::int32_t zone, std::int32_t zoneMin, std::uint32_t width) {
        Settings().SetIntValue("zone_width", zone);
        Settings().SetIntValue("zone_width_min", zoneMin);
        Detector().SetMaxMinPlate(width);
        return fake_engine::RangeCalls().back();
    };
    EXPECT_EQ(rangeOf(-33, 33, 10), (RangeCall{3, -3}));
    EXPECT_EQ(rangeOf(largest, smallest, 640), (RangeCall{0, -6}));
    EXPECT_EQ(rangeOf(largest, 3, 641), (RangeCall{19, 21474830}));
    EXPECT_EQ(rangeOf(1, 100, 4294967295u), (RangeCall{-1, 0}));
    EXPECT_EQ(rangeOf(50000, 100000, 100000), (RangeCall{14100654, 7050327}));
}

TEST_F(Recognition, ApplyingSettingsForgetsTheRange) {
    Frame(1);
    EXPECT_EQ(Detector().plateRangeMax, 640);
    EXPECT_EQ(Detector().plateRangeMin, 0);
    Settings().ApplySettings();
    EXPECT_EQ(Detector().plateRangeMax, -1);
    EXPECT_EQ(Detector().plateRangeMin, -1);
}

// The detector's own restart and the poll thread must have ended before the journal is read.
class RefusedRange : public Recognition {
  protected:
    void StartQuietly() {
        Detector();
        GetServerLauncher()->Stop();
        GetServerLauncher()->Start();
        ASSERT_EQ(fake_processes::Running().size(), 1u);
    }
};

TEST_F(RefusedRange, RestartsTheServerAndTheFrameIsStillRead) {
    diagnostics::SetDebugLevel(1);
    StartQuietly();
    const std::uint32_t before = fake_processes::Running().front();
    const std::size_t startsBefore = fake_processes::JournalOf("start").size();
    const std::size_t endsBefore = fake_processes::JournalOf("terminate").size();
    output.Clear();
    fake_engine::OnSetPlateRange([](int, int) { return false; });
    EXPECT_EQ(Frame(1), 0);
    EXPECT_EQ(ErrorState(), Error(0, ""));
    ASSERT_EQ(fake_processes::JournalOf("start").size(), startsBefore + 1);
    ASSERT_EQ(fake_processes::JournalOf("terminate").size(), endsBefore + 1);
    EXPECT_EQ(fake_processes::JournalOf("terminate").back(),
              "terminate " + std::to_string(before) + " code=4294967295");
    ASSERT_EQ(fake_processes::Running().size(), 1u);
    EXPECT_NE(fake_processes::Running().front(), before);
    EXPECT_EQ(fake_engine::RecognizeCalls().size(), 1u);
    EXPECT_EQ(Detector().plateRangeMax, 640) << "a refused range is stored all the same";
    const std::vector<std::string> texts = output.Texts();
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "ServerLauncher: Restart server launcher"), 1);
    EXPECT_THAT(Trace(), ElementsAre(LineOf("Recognize", "Frame count: 1 Iteration : 0 NumberOfPlate is 0")));
}

TEST_F(RefusedRange, StartsAServerThatHasEnded) {
    StartQuietly();
    fake_processes::Kill(fake_processes::Running().front());
    fake_engine::OnSetPlateRange([](int, int) { return false; });
    const std::size_t endsBefore = fake_processes::JournalOf("terminate").size();
    EXPECT_EQ(Frame(1), 0);
    EXPECT_EQ(fake_processes::Running().size(), 1u);
    EXPECT_EQ(fake_processes::JournalOf("terminate").size(), endsBefore) << "nothing ran that could be ended";
}

TEST_F(RefusedRange, RestartsAtEveryFrameAndAnAcceptedOneDoesNot) {
    StartQuietly();
    const std::size_t startsBefore = fake_processes::JournalOf("start").size();
    Frame(1);
    EXPECT_EQ(fake_processes::JournalOf("start").size(), startsBefore);
    fake_engine::OnSetPlateRange([](int, int) { return false; });
    Frame(2);
    Frame(3);
    EXPECT_EQ(fake_processes::JournalOf("start").size(), startsBefore + 2);
}

// The region.

TEST_F(Recognition, WithoutAnAreaTheEngineGetsNoRegion) {
    Settings().SetIntValue("area_right", 50);
    Frame(1);
    ASSERT_EQ(fake_engine::RecognizeCalls().size(), 1u);
    EXPECT_FALSE(fake_engine::RecognizeCalls()[0].region.has_value());
}

TEST_F(Recognition, AnAreaIsPassedInPixelsOfTheFrame) {
    Settings().SetBoolValue("use_area", true);
    Settings().SetIntValue("area_left", 10);
    Settings().SetIntValue("area_top", 21);
    Settings().SetIntValue("area_right", 90);
    Settings().SetIntValue("area_bottom", 99);
    Frame(1, 642, 482);
    ASSERT_TRUE(fake_engine::RecognizeCalls()[0].region.has_value());
    const tagRECT region = *fake_engine::RecognizeCalls()[0].region;
    EXPECT_EQ(region.left, 64);
    EXPECT_EQ(region.top, 101);
    EXPECT_EQ(region.right, 577);
    EXPECT_EQ(region.bottom, 477);
    Settings().SetBoolValue("use_area", false);
    Frame(2, 642, 482);
    EXPECT_FALSE(fake_engine::RecognizeCalls()[1].region.has_value());
}

TEST_F(Recognition, AnAreaIsComputedUnsigned) {
    Settings().SetBoolValue("use_area", true);
    Settings().SetIntValue("area_left", -1);
    Settings().SetIntValue("area_top", smallest);
    Settings().SetIntValue("area_right", largest);
    Settings().SetIntValue("area_bottom", 250);
    Frame(1, 640, 480);
    ASSERT_TRUE(fake_engine::RecognizeCalls()[0].region.has_value());
    const tagRECT region = *fake_engine::RecognizeCalls()[0].region;
    const auto slow = [](std::uint64_t size, std::int64_t percent) {
        const std::uint64_t modulus = std::uint64_t{1} << 32;
        return static_cast<std::int32_t>(size * static_cast<std::uint64_t>(percent) % modulus / 100);
    };
    EXPECT_EQ(region.left, slow(640, -1));
    EXPECT_EQ(region.left, 42949666);
    EXPECT_EQ(region.top, slow(480, smallest));
    EXPECT_EQ(region.right, slow(640, largest));
    EXPECT_EQ(region.bottom, 1200);
}

TEST_F(Recognition, AHalfFramesRegionIsThatOfTheWholeFrame) {
    Settings().SetBoolValue("use_half_cadr", true);
    Settings().SetBoolValue("use_area", true);
    Settings().SetIntValue("area_bottom", 100);
    Frame(1, 720, 576);
    EXPECT_EQ(Detector().effectiveHeight, 288u);
    EXPECT_EQ(fake_engine::RecognizeCalls()[0].region->bottom, 576);
}

TEST_F(Recognition, ASingleCallsAreaDoesNotReachTheEngine) {
    EXPECT_EQ(SingleFrame(1, {10, 10, 20, 20}), 0);
    EXPECT_FALSE(fake_engine::RecognizeCalls()[0].region.has_value());
    Settings().SetBoolValue("use_area", true);
    Settings().SetIntValue("area_left", 50);
    EXPECT_EQ(SingleFrame(2, {10, 10, 20, 20}), 0);
    ASSERT_TRUE(fake_engine::RecognizeCalls()[1].region.has_value());
    EXPECT_EQ(fake_engine::RecognizeCalls()[1].region->left, 320);
}

// The image and the records.

// The 16-bit formula of one pixel; other routines may differ by one.
std::array<int, 3> BlueGreenRed(int y, int u, int v) {
    const auto clamp = [](int value) { return std::clamp(value >> 16, 0, 255); };
    return {clamp(y * 65536 + 133169 * (u - 128)), clamp(y * 65536 - 38076 * (v - 128) - 25821 * (u - 128)),
            clamp(y * 65536 + 74711 * (v - 128))};
}

TEST_F(Recognition, TheEngineGetsTheFrameInBlueGreenRed) {
    constexpr std::uint32_t width = 32;
    constexpr std::uint32_t height = 16;
    recording_host::BufferOptions options;
    options.width = width;
    options.height = height;
    options.pixels.resize(width * height * 3 / 2);
    for (std::size_t index = 0; index < options.pixels.size(); ++index) {
        options.pixels[index] = static_cast<std::uint8_t>(index * 37 + index / 11);
    }
    const std::vector<std::uint8_t> yuv = options.pixels;
    OKM8::Analytics::IMediaReceiver& receiver = Detector();
    EXPECT_EQ(receiver.Receive(recording_host::MakeBuffer(counts, options)), 0);
    ASSERT_EQ(fake_engine::RecognizeCalls().size(), 1u);
    const fake_engine::RecognizeCall call = fake_engine::RecognizeCalls().front();
    EXPECT_EQ(call.image.width, width);
    EXPECT_EQ(call.image.height, height);
    EXPECT_EQ(call.image.bytesPerPixel, 3u);
    EXPECT_EQ(call.image.rowStride, 3 * width);
    ASSERT_EQ(call.pixels.size(), std::size_t{3} * width * height);
    for (std::size_t row = 0; row < height; ++row) {
        for (std::size_t column = 0; column < width; ++column) {
            const std::size_t chroma = width * height + row / 2 * (width / 2) + column / 2;
            const auto expected =
                BlueGreenRed(yuv[row * width + column], yuv[chroma], yuv[chroma + width * height / 4]);
            for (std::size_t channel = 0; channel < 3; ++channel) {
                ASSERT_NEAR(call.pixels[(row * width + column) * 3 + channel], expected[channel], 1)
                    << row << " " << column << " " << channel;
            }
        }
    }
}

TEST_F(Recognition, OnlyTheColourConverterIsInTheChain) {
    Settings().SetBoolValue("use_half_cadr", true);
    Frame(1, 720, 576);
    ASSERT_EQ(Detector().transformer.Steps().size(), 1u);
    EXPECT_NE(boost::dynamic_pointer_cast<image_transform::ConverterYUV2RGB>(Detector().transformer.Steps().front()),
              nullptr);
    EXPECT_EQ(fake_engine::RecognizeCalls()[0].image.height, 576u) << "half frames do not reach the engine";
    EXPECT_TRUE(Detector().IsHalfFrame());
    Settings().ApplySettings();
    EXPECT_EQ(Detector().transformer.Steps().size(), 1u);
}

TEST_F(Recognition, AFrameOfUnknownLayoutIsRefusedBeforeTheEngine) {
    recording_host::BufferOptions options;
    options.width = 32;
    options.height = 16;
    options.pixels.assign(100, 1);
    OKM8::Analytics::IMediaReceiver& receiver = Detector();
    EXPECT_EQ(receiver.Receive(recording_host::MakeBuffer(counts, options)), 1);
    EXPECT_EQ(ErrorState(), Error(1, "Wrong image format"));
    EXPECT_THAT(fake_engine::RecognizeCalls(), IsEmpty());
    EXPECT_EQ(Detector().frameCount, 0u);
}

// The engine reads 3 bytes for each pixel and checks no size, so it would read past the end of any smaller image.

TEST_F(Recognition, AFrameWithoutTheColourConverterIsRefusedBeforeTheEngine) {
    Frame(1);
    fake_engine::Reset();
    Detector().transformer.Clear();
    OKM8::Analytics::IMediaReceiverSingle2& single = Detector();
    recording_host::RecordingFrameDone done;
    EXPECT_EQ(single.ReceiveSingle(recording_host::MakeFrame(counts, 640, 480, 2), nullptr, &done), 1);
    EXPECT_EQ(ErrorState(), Error(1, "Wrong image format"));
    EXPECT_THAT(fake_engine::RecognizeCalls(), IsEmpty());
    EXPECT_THAT(fake_engine::RangeCalls(), IsEmpty());
    EXPECT_THAT(done.buffers, IsEmpty()) << "as for a frame that the converter refuses";
    Settings().ApplySettings();
    EXPECT_EQ(Frame(3), 0);
    EXPECT_EQ(fake_engine::RecognizeCalls().size(), 1u);
}

TEST_F(Recognition, AHalvedGreyFrameIsRefusedBeforeTheEngine) {
    Settings().SetBoolValue("use_half_cadr", true);
    Frame(1, 720, 576);
    fake_engine::Reset();
    Detector().RebuildTransforms();
    EXPECT_EQ(Frame(2, 720, 576), 1);
    EXPECT_EQ(ErrorState(), Error(1, "Wrong image format"));
    EXPECT_THAT(fake_engine::RecognizeCalls(), IsEmpty());
}

TEST_F(Recognition, AnImageOfAnyOtherSizeIsRefusedBeforeTheEngine) {
    struct Size {
        std::uint32_t width;
        std::uint32_t height;
        std::uint32_t bytes;
    };
    std::vector<std::uint8_t> pixels(64 * 48 * 4);
    const auto buffer = boost::shared_ptr<OKM8::MFF::ICompositeBuffer>(
        static_cast<OKM8::MFF::ICompositeBuffer*>(recording_host::MakeFrame(counts, 64, 48, 1)),
        [](OKM8::MFF::ICompositeBuffer* released) { released->Release(); });
    constexpr std::uint32_t right = 64 * 48 * 3;
    // For the last one, three times the number of pixels equals the size in the low 64 bits.
    for (const Size& size : {Size{64, 48, right - 1}, Size{64, 48, right + 1}, Size{64, 48, right - 3},
                             Size{64, 48, right / 2}, Size{64, 47, right}, Size{0xAAAAAAABu, 1u << 31, 1u << 31}}) {
        SCOPED_TRACE(size.bytes);
        plate_recognition::FrameImage frame(size.width, size.height, size.bytes, pixels.data());
        Settings().ApplySettings();
        Detector().Recognize(frame, buffer);
        EXPECT_EQ(ErrorState(), Error(1, "Wrong image format"));
        EXPECT_THAT(fake_engine::RecognizeCalls(), IsEmpty());
    }
    Settings().ApplySettings();
    plate_recognition::FrameImage frame(64, 48, right, pixels.data());
    Detector().Recognize(frame, buffer);
    EXPECT_EQ(ErrorState(), Error(0, ""));
    EXPECT_EQ(fake_engine::RecognizeCalls().size(), 1u);
}

TEST_F(Recognition, TheEngineIsCalledOnceAFrameWithNullAnd0AndZeroedRecords) {
    fake_engine::OnRecognize([](const IMG&, RPLATE* plates) {
        std::fill_n(reinterpret_cast<std::uint8_t*>(plates), 5 * sizeof(RPLATE), std::uint8_t{0x41});
        return 0;
    });
    for (std::uint64_t time = 1; time <= 4; ++time) {
        EXPECT_EQ(Frame(time), 0);
    }
    const auto calls = fake_engine::RecognizeCalls();
    ASSERT_EQ(calls.size(), 4u);
    for (const auto& call : calls) {
        EXPECT_TRUE(call.isFirstArgumentNull);
        EXPECT_EQ(call.flags, 0);
        EXPECT_TRUE(call.wereRecordsZero);
    }
    EXPECT_EQ(Detector().frameCount, 4u);
}

TEST_F(Recognition, TheRangeComesBeforeTheRecognition) {
    bool hasRange = false;
    fake_engine::OnSetPlateRange([&](int, int) { return hasRange = true; });
    fake_engine::OnRecognize([&](const IMG&, RPLATE*) {
        EXPECT_TRUE(hasRange);
        EXPECT_NE(Detector().tracker, nullptr) << "made before the call";
        return 0;
    });
    Frame(1);
    EXPECT_EQ(fake_engine::RecognizeCalls().size(), 1u);
}

// Readings.

TEST_F(Recognition, TheTrackerGetsTheFramesTimeEvenWithoutPlates) {
    RecordingTracker& tracker = UseRecordingTracker();
    for (const int count : {0, -1, smallest}) {
        fake_engine::OnRecognize([count](const IMG&, RPLATE*) { return count; });
        EXPECT_EQ(Frame(500), 0);
        ASSERT_FALSE(tracker.calls.empty());
        EXPECT_THAT(tracker.calls.back().readings, IsEmpty());
        EXPECT_EQ(tracker.calls.back().frameTime, 500u);
    }
    EXPECT_EQ(tracker.calls.size(), 3u);
    EXPECT_EQ(Detector().nextPlateId, 0u);
    EXPECT_THAT(Detector().pendingResults, IsEmpty());
}

TEST_F(Recognition, AReadingHoldsTheFrameTheCrossedCornersAndTheWeight) {
    RecordingTracker& tracker = UseRecordingTracker();
    RPLATE record = fake_engine::Plate("B1234EF", 700.0, 0, 0, 0, 0);
    record.corner1 = {11, 12};
    record.corner2 = {21, 22};
    record.corner3 = {31, 32};
    record.corner4 = {41, 42};
    Find({record});
    EXPECT_EQ(Frame(18446744073709551615u), 0);
    ASSERT_EQ(tracker.calls.size(), 1u);
    EXPECT_EQ(tracker.calls[0].frameTime, 18446744073709551615u);
    ASSERT_EQ(tracker.calls[0].readings.size(), 1u);
    const LicencePlate& reading = *tracker.calls[0].readings[0];
    EXPECT_EQ(reading.timeStamp, 18446744073709551615u);
    EXPECT_EQ(reading.frameWidth, 640u);
    EXPECT_EQ(reading.frameHeight, 480u);
    EXPECT_EQ(std::make_pair(reading.cornerA.x, reading.cornerA.y), std::make_pair(11, 12));
    EXPECT_EQ(std::make_pair(reading.cornerB.x, reading.cornerB.y), std::make_pair(31, 32));
    EXPECT_EQ(std::make_pair(reading.cornerC.x, reading.cornerC.y), std::make_pair(21, 22));
    EXPECT_EQ(std::make_pair(reading.cornerD.x, reading.cornerD.y), std::make_pair(41, 42));
    EXPECT_EQ(reading.weight, 100);
    EXPECT_EQ(reading.id, 0u);
    EXPECT_EQ(reading.frameNumber, 2u);
    EXPECT_EQ(reading.text, std::wstring(L"B1234EF\0\0\0\0\0\0\0\0", 15));
    ASSERT_EQ(Detector().pendingResults.count(0), 1u);
    EXPECT_EQ(Detector().pendingResults.at(0)->text, L"B1234EF");
}

TEST_F(Recognition, RecordsAreReadWhereTheEngineWritesThem) {
    RecordingTracker& tracker = UseRecordingTracker();
    fake_engine::OnRecognize([](const IMG&, RPLATE* plates) {
        // By offset, as the engine's compiler lays out the record.
        auto* const bytes = reinterpret_cast<std::uint8_t*>(plates) + 384;
        const std::int32_t corners[] = {-1, -2, -3, -4, -5, -6, -7, -8};
        std::copy_n("XY", 2, reinterpret_cast<char*>(bytes));
        const double sum = 180.0;
        std::memcpy(bytes + 28, &sum, sizeof sum);
        std::memcpy(bytes + 128, corners, sizeof corners);
        return 2;
    });
    EXPECT_EQ(Frame(1), 0);
    ASSERT_EQ(tracker.calls[0].readings.size(), 2u);
    const LicencePlate& reading = *tracker.calls[0].readings[1];
    EXPECT_EQ(reading.cornerA.x, -1);
    EXPECT_EQ(reading.cornerA.y, -2);
    EXPECT_EQ(reading.cornerC.x, -3);
    EXPECT_EQ(reading.cornerC.y, -4);
    EXPECT_EQ(reading.cornerB.x, -5);
    EXPECT_EQ(reading.cornerB.y, -6);
    EXPECT_EQ(reading.cornerD.x, -7);
    EXPECT_EQ(reading.cornerD.y, -8);
    EXPECT_EQ(Detector().pendingResults.at(1)->confidence, 90);
}

TEST_F(Recognition, IdsBeginAt0AndContinueAcrossFrames) {
    RecordingTracker& tracker = UseRecordingTracker();
    std::vector<std::uint64_t> ids;
    Find({RecordOf({}), RecordOf({}), RecordOf({})});
    Frame(1);
    Find({RecordOf({}), RecordOf({})});
    Frame(2);
    for (const auto& call : tracker.calls) {
        for (const auto& reading : call.readings) {
            ids.push_back(reading->id);
        }
    }
    EXPECT_THAT(ids, ElementsAre(0, 1, 2, 3, 4));
    EXPECT_EQ(Detector().nextPlateId, 5u);
    EXPECT_EQ(Detector().pendingResults.size(), 5u);
    for (const auto& [key, result] : Detector().pendingResults) {
        EXPECT_EQ(result->id, static_cast<std::uint32_t>(key));
    }
}

TEST_F(Recognition, TheKeyOfAPendingResultIsTheIds32BitsSigned) {
    UseRecordingTracker();
    Detector().nextPlateId = 0xFFFFFFFFu;
    Find({RecordOf({}), RecordOf({})});
    Frame(1);
    ASSERT_EQ(Detector().pendingResults.size(), 2u);
    ASSERT_EQ(Detector().pendingResults.count(-1), 1u);
    EXPECT_EQ(Detector().pendingResults.at(-1)->id, 0xFFFFFFFFu);
    ASSERT_EQ(Detector().pendingResults.count(0), 1u) << "of ID 4294967296";
    EXPECT_EQ(Detector().nextPlateId, 0x100000001u);
}

TEST_F(Recognition, ARepeatedKeyReplacesItsEntryAndReleasesItsFrame) {
    UseRecordingTracker();
    Find(FoundPlate{});
    Frame(1);
    const int releasedBefore = counts.released;
    Detector().nextPlateId = 0x100000000u;
    Frame(2);
    EXPECT_EQ(Detector().pendingResults.size(), 1u);
    EXPECT_EQ(Detector().pendingResults.at(0)->creationTime, 2u);
    EXPECT_EQ(counts.released, releasedBefore + 1);
}

TEST_F(Recognition, ACountBeyondTheArrayCreatesThatManyReadingsTheExtraOnesEmpty) {
    RecordingTracker& tracker = UseRecordingTracker();
    fake_engine::OnRecognize([](const IMG&, RPLATE* plates) {
        std::fill_n(plates, 5, RecordOf({}));
        return 7;
    });
    EXPECT_EQ(Frame(1), 0);
    ASSERT_EQ(tracker.calls.size(), 1u);
    ASSERT_EQ(tracker.calls[0].readings.size(), 7u);
    for (std::size_t index = 0; index < 7; ++index) {
        const LicencePlate& reading = *tracker.calls[0].readings[index];
        EXPECT_EQ(reading.id, index);
        const bool isEmpty = index >= 5;
        EXPECT_EQ(reading.text, isEmpty ? std::wstring(15, L'\0') : std::wstring(L"AB123C\0\0\0\0\0\0\0\0\0", 15));
        EXPECT_EQ(reading.cornerA.x, isEmpty ? 0 : 100);
        EXPECT_EQ(Detector().pendingResults.at(static_cast<std::int32_t>(index))->text, isEmpty ? L"" : L"AB123C");
    }
}

TEST_F(Recognition, ACountOf1024IsAccepted) {
    RecordingTracker& tracker = UseRecordingTracker();
    fake_engine::OnRecognize([](const IMG&, RPLATE*) { return 1024; });
    EXPECT_EQ(Frame(1), 0);
    ASSERT_EQ(tracker.calls.size(), 1u);
    EXPECT_EQ(tracker.calls[0].readings.size(), 1024u);
    EXPECT_EQ(Detector().pendingResults.size(), 1024u);
}

// A count of 2147483647 created that many readings while the frame was locked.
class ImpossibleCount : public Recognition, public testing::WithParamInterface<int> {};

TEST_P(ImpossibleCount, IsATraceLineAndTheFrameHasNoPlates) {
    RecordingTracker& tracker = UseRecordingTracker();
    diagnostics::SetDebugLevel(1);
    output.Clear();
    fake_engine::OnRecognize([](const IMG&, RPLATE* plates) {
        std::fill_n(plates, engineRecordCount, RecordOf({}));
        return GetParam();
    });
    EXPECT_EQ(Frame(7), 0);
    EXPECT_EQ(ErrorState(), Error(0, ""));
    const std::string count = std::to_string(GetParam());
    EXPECT_THAT(Trace(), ElementsAre(LineOf("Recognize", "Frame count: 2 Iteration : 0 NumberOfPlate is " + count),
                                     LineOf("Recognize", "Plate count " + count +
                                                             " exceeds 1024: the frame counts as one without plates")));
    ASSERT_EQ(tracker.calls.size(), 1u);
    EXPECT_THAT(tracker.calls[0].readings, IsEmpty());
    EXPECT_EQ(tracker.calls[0].frameTime, 7u);
    EXPECT_THAT(Detector().pendingResults, IsEmpty());
    EXPECT_EQ(Detector().nextPlateId, 0u);
    EXPECT_EQ(counts.released, counts.made);
    Find(FoundPlate{});
    EXPECT_EQ(Frame(8), 0);
    EXPECT_EQ(tracker.calls.at(1).readings.size(), 1u);
}

TEST_P(ImpossibleCount, IsSilentAtLevel0) {
    Detector();
    output.Clear();
    fake_engine::OnRecognize([](const IMG&, RPLATE*) { return GetParam(); });
    EXPECT_EQ(Frame(7), 0);
    EXPECT_THAT(Trace(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Of, ImpossibleCount, testing::Values(1025, largest), testing::PrintToStringParamName());

// The tracker's limits, by the time of its report.

class TrackerLimits : public EngineTest {
  protected:
    // Plays a plate that moves to the right, 40 pixels a frame; returns the frame that raises the event, 0 for none.
    int FrameOfTheEvent(int frames, std::uint64_t period = 1000) {
        for (int frame = 1; frame <= frames; ++frame) {
            const int x = 100 + 40 * frame;
            Find(FoundPlate{.text = "AB123C", .left = x, .top = 200, .right = x + 60, .bottom = 220});
            EXPECT_EQ(Frame(static_cast<std::uint64_t>(frame) * period, 2000, 240), 0);
            if (!host.Events().empty()) {
                EXPECT_EQ(host.Events().size(), 1u);
                return frame;
            }
        }
        return 0;
    }
};

TEST_F(TrackerLimits, AreUnusedWhenResultsAreNotReadyEarly) {
    Settings().SetIntValue("result_rec_count", 2);
    Settings().SetIntValue("result_wait_time", 2);
    EXPECT_EQ(FrameOfTheEvent(20), 0);
}

// A track with one reading is neither slow nor out of view. It is old enough one millisecond before it would be lost.
TEST_F(TrackerLimits, WhenUnusedStillReportATrackOf2147483647Milliseconds) {
    constexpr std::uint64_t start = 1000;
    Detector().trackerParameter = largest;
    Find(FoundPlate{});
    EXPECT_EQ(Frame(start), 0);
    FindNothing();
    EXPECT_EQ(Frame(start + largest - 1), 0);
    EXPECT_THAT(host.Events(), IsEmpty());
    EXPECT_EQ(Frame(start + largest), 0);
    ASSERT_EQ(host.Events().size(), 1u);
    EXPECT_EQ(host.Events()[0].raised, 1);
    EXPECT_EQ(host.Events()[0].timeMs, static_cast<std::int64_t>(start));
}

TEST_F(TrackerLimits, ReportATrackWithItsCountOfReadings) {
    Settings().SetBoolValue("result_ready", true);
    Settings().SetIntValue("result_rec_count", 4);
    Settings().SetIntValue("result_wait_time", 1000);
    EXPECT_EQ(FrameOfTheEvent(20), 4);
}

TEST_F(TrackerLimits, ReportATrackAfterItsWaitInSeconds) {
    Settings().SetBoolValue("result_ready", true);
    Settings().SetIntValue("result_rec_count", 1000);
    Settings().SetIntValue("result_wait_time", 5);
    EXPECT_EQ(FrameOfTheEvent(40, 500), 11) << "the frame 5000 ms after the first";
}

TEST_F(TrackerLimits, ReportAtTheExactMillisecondOfTheWait) {
    Settings().SetBoolValue("result_ready", true);
    Settings().SetIntValue("result_rec_count", 1000);
    Settings().SetIntValue("result_wait_time", 5);
    Find(FoundPlate{});
    Frame(10000);
    Find(FoundPlate{.left = 140, .right = 200});
    Frame(12500);
    FindNothing();
    Frame(14999);
    EXPECT_THAT(host.Events(), IsEmpty());
    Frame(15000);
    EXPECT_EQ(host.Events().size(), 1u);
}

TEST_F(TrackerLimits, ReportAtOnceWhenBothAre0) {
    Settings().SetBoolValue("result_ready", true);
    EXPECT_EQ(FrameOfTheEvent(20), 1);
}

TEST_F(TrackerLimits, ThatAreNegativeAreUnused) {
    Settings().SetBoolValue("result_ready", true);
    Settings().SetIntValue("result_rec_count", -1);
    Settings().SetIntValue("result_wait_time", -1);
    EXPECT_EQ(FrameOfTheEvent(20), 0);
}

TEST_F(TrackerLimits, OfAHugeWaitDoNotWrap) {
    Settings().SetBoolValue("result_ready", true);
    Settings().SetIntValue("result_rec_count", 1000);
    Settings().SetIntValue("result_wait_time", 4294968);  // its milliseconds would be 704 in 32 bits
    EXPECT_EQ(FrameOfTheEvent(20), 0);
}

TEST_F(TrackerLimits, AreReadOnlyWithTheFirstFrame) {
    EXPECT_EQ(Frame(1, 2000, 240), 0);
    const auto made = Detector().tracker;
    ASSERT_NE(made, nullptr);
    Settings().SetBoolValue("result_ready", true);
    Settings().SetIntValue("result_rec_count", 2);
    Settings().ApplySettings();
    EXPECT_EQ(FrameOfTheEvent(10), 0);
    EXPECT_EQ(Detector().tracker, made);
}

class LostTimeout : public EngineTest {
  protected:
    // Returns whether a track that was seen at 0 and 100 ms is lost that many milliseconds after its last reading.
    bool IsLostAfter(std::uint64_t silence) {
        const std::size_t before = host.Events().size();
        Find(FoundPlate{});
        Frame(base);
        Find(FoundPlate{.left = 101, .right = 161});
        Frame(base + 10);
        FindNothing();
        Frame(base + 10 + silence);
        const bool isLost = host.Events().size() > before;
        base += 1000000;
        Frame(base);  // remaining tracks are lost by now
        return isLost;
    }
    std::uint64_t base = 1000;
};

TEST_F(LostTimeout, IsThreeSeconds) {
    EXPECT_FALSE(IsLostAfter(3000));
    EXPECT_TRUE(IsLostAfter(3001));
}

TEST_F(LostTimeout, IsSetAgainByApplyingSettings) {
    Frame(1);
    Detector().tracker->SetLostTimeout(50);
    EXPECT_TRUE(IsLostAfter(51));
    EXPECT_FALSE(IsLostAfter(50));
    Settings().ApplySettings();
    EXPECT_FALSE(IsLostAfter(3000));
    EXPECT_TRUE(IsLostAfter(3001));
}

TEST_F(LostTimeout, FollowsTheParameterWhenSettingsAreApplied) {
    Frame(1);
    Detector().trackerParameter = 70;
    EXPECT_FALSE(IsLostAfter(3000));
    Settings().ApplySettings();
    EXPECT_FALSE(IsLostAfter(70));
    EXPECT_TRUE(IsLostAfter(71));
}

TEST_F(LostTimeout, EndsATrackAtOnceWhenAFrameIsOlderThanItsLastReading) {
    Find(FoundPlate{});
    Frame(10000);
    FindNothing();
    Frame(9999);
    EXPECT_EQ(host.Events().size(), 1u);
}

// Exceptions.

class RecognitionFailure : public Recognition {
  protected:
    RecognitionFailure() { diagnostics::SetDebugLevel(1); }
};

TEST_F(RecognitionFailure, AnExceptionOfTheEngineIsATraceLineAndTheFrameSucceeds) {
    RecordingTracker& tracker = UseRecordingTracker();
    output.Clear();
    fake_engine::OnRecognize([](const IMG&, RPLATE*) -> int { throw std::runtime_error("engine lost"); });
    const int releasedBefore = counts.released;
    EXPECT_EQ(Frame(1), 0);
    EXPECT_EQ(ErrorState(), Error(0, ""));
    EXPECT_THAT(Trace(), ElementsAre(LineOf("Recognize", "engine lost")));
    EXPECT_THAT(tracker.calls, IsEmpty());
    EXPECT_EQ(counts.released, releasedBefore + 1);
    EXPECT_EQ(Detector().frameCount, 2u) << "the frame counts";
    FindNothing();
    EXPECT_EQ(Frame(2), 0);
    EXPECT_EQ(tracker.calls.size(), 1u);
}

TEST_F(RecognitionFailure, AnyOtherExceptionIsTracedAsException) {
    RecordingTracker& tracker = UseRecordingTracker();
    output.Clear();
    fake_engine::OnRecognize([](const IMG&, RPLATE*) -> int { throw 42; });
    const int releasedBefore = counts.released;
    EXPECT_EQ(Frame(1), 0);
    EXPECT_EQ(ErrorState(), Error(0, ""));
    EXPECT_THAT(Trace(), ElementsAre(LineOf("Recognize", "Exception")));
    EXPECT_THAT(tracker.calls, IsEmpty());
    EXPECT_EQ(counts.released, releasedBefore + 1);
}

TEST_F(RecognitionFailure, IsSilentAtLevel0) {
    diagnostics::SetDebugLevel(0);
    Detector();
    output.Clear();
    fake_engine::OnRecognize([](const IMG&, RPLATE*) -> int { throw std::runtime_error("engine lost"); });
    EXPECT_EQ(Frame(1), 0);
    fake_engine::OnSetPlateRange([](int, int) -> bool { throw 1; });
    EXPECT_EQ(Frame(2), 0);
    EXPECT_THAT(Trace(), IsEmpty());
}

TEST_F(RecognitionFailure, OfTheRangeEndsTheFrameToo) {
    Detector();
    output.Clear();
    fake_engine::OnSetPlateRange([](int, int) -> bool { throw std::logic_error("range lost"); });
    EXPECT_EQ(Frame(1), 0);
    EXPECT_THAT(Trace(), ElementsAre(LineOf("Recognize", "range lost")));
    EXPECT_THAT(fake_engine::RecognizeCalls(), IsEmpty());
    EXPECT_EQ(Detector().tracker, nullptr);
}

TEST_F(RecognitionFailure, OfTheRangeCountsAsAFrame) {
    Detector();
    fake_engine::OnSetPlateRange([](int, int) -> bool { throw std::logic_error("range lost"); });
    EXPECT_EQ(Frame(1), 0);
    fake_engine::OnSetPlateRange(nullptr);
    output.Clear();
    EXPECT_EQ(Frame(2), 0);
    EXPECT_THAT(Trace(), ElementsAre(LineOf("Recognize", "Frame count: 2 Iteration : 0 NumberOfPlate is 0")));
}

TEST_F(RecognitionFailure, AnEmptyFrameHandleIsTracedAndTheFrameDropped) {
    RecordingTracker& tracker = UseRecordingTracker();
    output.Clear();
    Find({RecordOf({}), RecordOf({})});
    std::vector<std::uint8_t> pixels(64 * 48 * 3);
    plate_recognition::FrameImage frame(64, 48, static_cast<std::uint32_t>(pixels.size()), pixels.data());
    EXPECT_NO_THROW(Detector().Recognize(frame, {}));
    ASSERT_FALSE(Trace().empty());
    EXPECT_EQ(Trace().back(), LineOf("Recognize", "RecognitionResult constructor: Buffer is NULL"));
    EXPECT_THAT(tracker.calls, IsEmpty());
    EXPECT_THAT(Detector().pendingResults, IsEmpty());
    EXPECT_EQ(Detector().nextPlateId, 0u);
}

// Throws on the wide line of the n-th result.
class ThrowingOutput final : public platform::DebugOutputSink {
  public:
    explicit ThrowingOutput(int linesBefore) : left_(linesBefore), before_(platform::ExchangeDebugOutputSink(this)) {}
    ~ThrowingOutput() override { platform::ExchangeDebugOutputSink(before_); }
    void Write(const char*) override {}
    void Write(const wchar_t*) override {
        if (left_-- == 0) {
            throw std::runtime_error("disk full");
        }
    }

  private:
    int left_;
    platform::DebugOutputSink* before_;
};

TEST_F(RecognitionFailure, KeepsTheResultsThatWereAlreadyPending) {
    RecordingTracker& tracker = UseRecordingTracker();
    Find({RecordOf({}), RecordOf({}), RecordOf({})});
    {
        const ThrowingOutput failing(2);
        EXPECT_EQ(Frame(7), 0);
    }
    EXPECT_THAT(tracker.calls, IsEmpty());
    EXPECT_EQ(Detector().pendingResults.size(), 2u);
    EXPECT_EQ(Detector().nextPlateId, 2u);
    EXPECT_EQ(counts.made - counts.released, 1) << "they keep their frame";
}

// Trace.

TEST_F(Recognition, AFramesLinesAreTheCountOfFramesAndPlatesAndEachResult) {
    diagnostics::SetDebugLevel(-1);
    Settings().SetBoolValue("result_ready", false);
    output.Clear();
    Find({RecordOf({}), RecordOf({.text = "\xBE\xA9\x41", .left = -5, .confidenceSum = 2.0})});
    Frame(1);
    FindNothing();
    Frame(2);
    EXPECT_THAT(Trace(),
                ElementsAre(LineOf("Recognize", "Frame count: 1 Iteration : 0 NumberOfPlate is 2"),
                            LineOf("CreateResult",
                                   "Create result: Plate = AB123C Rect = {100, 100, 160, 120} IsFinished = 0 Id = 0"),
                            LineOf("CreateResult", std::string("Create result: Plate = ") + static_cast<char>(0xAC) +
                                                       "A Rect = {-5, 100, 160, 120} IsFinished = 0 Id = 1"),
                            LineOf("Recognize", "Frame count: 2 Iteration : 0 NumberOfPlate is 0")));
    for (const auto& line : output.Lines()) {
        EXPECT_EQ(line.isWide, line.narrow.find("CreateResult") != std::string::npos) << line.narrow;
    }
    const auto lines = output.Lines();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const auto& line) {
        return line.wide.find(
                   L"Plate = \u4EAC"
                   L"A Rect") != std::wstring::npos;
    }));
}

TEST_F(Recognition, NothingIsWrittenAtLevel0) {
    ReportAtOnce();
    Find({RecordOf({}), RecordOf({.text = "ZZ999Z", .left = 300, .right = 360})});
    for (std::uint64_t frame = 0; frame < 5; ++frame) {
        Frame(frame * 1000);
    }
    EXPECT_EQ(host.Events().size(), 2u);
    End();
    EXPECT_THAT(output.Texts(), IsEmpty());
}

}  // namespace
