// Frames from the host's buffer to the engine hook.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <boost/gil.hpp>
#include <cstring>
#include <functional>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

#include "image_transform/image_deinterlacer.h"
#include "sdk/contract_names.h"
#include "tests/detector/test_detector.h"

namespace {

using detector_tests::BufferPointer;
using detector_tests::DetectorPointer;
using detector_tests::Error;
using detector_tests::ErrorOf;
using detector_tests::ErrorsOf;
using detector_tests::FrameImage;
using detector_tests::MakeDetector;
using detector_tests::ReceiverOf;
using detector_tests::RefuseASetting;
using detector_tests::SettingsOf;
using detector_tests::SingleReceiverOf;
using OKM8::FrameArea;
using plate_recognition::PixelRect;
using recording_host::BufferOptions;
using recording_host::HostCall;
using recording_host::MakeBuffer;
using recording_host::MakeFrame;
using recording_host::On;
using recording_host::Operation;
using recording_host::RecordingFrameDone;
using testing::ElementsAre;
using testing::Pair;

constexpr std::int32_t largest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t smallest = std::numeric_limits<std::int32_t>::min();

class FrameIntake : public testing::Test {
  protected:
    ~FrameIntake() override {
        detector.reset();
        EXPECT_EQ(counts.released, counts.made);
    }

    std::int32_t Receive(OKM8::MFF::IMultimediaBuffer* buffer) { return ReceiverOf(*detector).Receive(buffer); }

    std::int32_t ReceiveSingle(OKM8::MFF::IMultimediaBuffer* buffer, FrameArea area,
                               OKM8::IContract* callback = nullptr) {
        return SingleReceiverOf(*detector).ReceiveSingle(buffer, &area, callback);
    }

    recording_host::BufferCounts counts;
    recording_host::RecordingHost host;
    DetectorPointer detector = MakeDetector(host);
};

std::array<std::int32_t, 4> Sides(const PixelRect& rect) {
    return {rect.left, rect.top, rect.right, rect.bottom};
}

std::array<std::int32_t, 4> Rect(std::int32_t left, std::int32_t top, std::int32_t right, std::int32_t bottom) {
    return {left, top, right, bottom};
}

TEST_F(FrameIntake, ANullInputIsRefusedByItsText) {
    EXPECT_EQ(Receive(nullptr), 1);
    EXPECT_EQ(ErrorOf(*detector), Error(1, "Input data is null"));
    EXPECT_EQ(detector->recognized, 0);
}

TEST_F(FrameIntake, ANullInputToASingleCallIsRefusedByItsText) {
    RecordingFrameDone done;
    EXPECT_EQ(ReceiveSingle(nullptr, {0, 0, 10, 10}, &done), 1);
    EXPECT_EQ(ErrorOf(*detector), Error(1, "Input data is null"));
    EXPECT_TRUE(done.buffers.empty());
}

TEST_F(FrameIntake, AnInputThatIsNotACompositeBufferIsReleasedOnce) {
    BufferOptions options;
    options.isComposite = false;
    options.pixels.assign(64 * 48, 0);
    EXPECT_EQ(Receive(MakeBuffer(counts, options)), 1);
    EXPECT_EQ(ErrorOf(*detector), Error(1, "inputData is not an ICompositeBuffer"));
    EXPECT_EQ(counts.released, 1);
    EXPECT_EQ(detector->recognized, 0);
}

// The calls of the library on a buffer and, where that is a separate object, on its composite part.
class BufferCalls : public FrameIntake {
  protected:
    BufferCalls() {
        counts.onCall = [this](const HostCall& call) {
            calls.emplace_back(call.owner, call.operation);
            if (call.operation == Operation::QueryContract) {
                EXPECT_STREQ(call.name, "struct OKM8::MFF::ICompositeBuffer");
            }
        };
    }

    std::vector<std::pair<int, Operation>> calls;  // with the number of the buffer
};

TEST_F(BufferCalls, AnInputThatIsNotACompositeBufferIsReleasedThroughTheInputItself) {
    EXPECT_EQ(Receive(MakeBuffer(counts, {.pixels = {}, .isComposite = false})), 1);
    EXPECT_THAT(calls, ElementsAre(Pair(0, Operation::QueryContract), Pair(0, Operation::Release)));
}

class CompositePart : public BufferCalls {
  protected:
    // The library has released the other one.
    ~CompositePart() override { input->Release(); }

    BufferOptions options = {.width = 4, .height = 2, .pixels = std::vector<std::uint8_t>(12, 5), .timeStamp = 77};
    OKM8::MFF::IMultimediaBuffer* composite = MakeBuffer(counts, options);
    OKM8::MFF::IMultimediaBuffer* input =
        MakeBuffer(counts, {.pixels = {}, .compositePart = static_cast<OKM8::MFF::ICompositeBuffer*>(composite)});
};

TEST_F(CompositePart, IsReadInOneOrderAndReleasedAtTheEnd) {
    detector->onRecognize = [&](FrameImage&, BufferPointer) { calls.emplace_back(2, Operation::Unused); };
    EXPECT_EQ(Receive(input), 0);
    EXPECT_THAT(
        calls, ElementsAre(Pair(1, Operation::QueryContract), Pair(0, Operation::GetData),
                           Pair(0, Operation::GetDataSize), Pair(0, Operation::GetHeight), Pair(0, Operation::GetWidth),
                           Pair(2, Operation::Unused), Pair(0, Operation::GetTimeStamp), Pair(0, Operation::Release)));
    EXPECT_EQ(detector->lastTimeStamp, 77u);
}

TEST_F(CompositePart, ReturnsTheTimeAfterFrameDoneWhichGetsTheInputItself) {
    RecordingFrameDone done;
    detector->onRecognize = [&](FrameImage&, BufferPointer) {
        EXPECT_TRUE(done.buffers.empty());
        EXPECT_EQ(detector->lastTimeStamp, 0u);
    };
    EXPECT_EQ(ReceiveSingle(input, {}, &done), 0);
    EXPECT_THAT(done.buffers, ElementsAre(input));
    EXPECT_EQ(detector->lastTimeStamp, 77u);
}

TEST_F(FrameIntake, AZeroByZeroBufferIsRefusedWithoutRecognition) {
    BufferOptions options;
    options.width = 0;
    options.height = 0;
    options.pixels.assign(16, 0);
    EXPECT_EQ(Receive(MakeBuffer(counts, options)), 1);
    EXPECT_EQ(ErrorOf(*detector), Error(1, "Zero image size is not acceptable"));
    EXPECT_EQ(detector->recognized, 0);
    EXPECT_EQ(counts.released, 1);
}

struct ZeroCase {
    const char* description;
    std::uint32_t width;
    std::uint32_t height;
    std::int64_t size;
    std::size_t pixelBytes;  // 0 for null data
};

class ZeroSizes : public FrameIntake, public testing::WithParamInterface<ZeroCase> {};

TEST_P(ZeroSizes, AreRefusedWithoutRecognitionAndReleasedOnce) {
    RefuseASetting(*detector);
    BufferOptions options;
    options.width = GetParam().width;
    options.height = GetParam().height;
    options.size = GetParam().size;
    options.pixels.assign(GetParam().pixelBytes, 1);
    RecordingFrameDone done;
    EXPECT_EQ(ReceiveSingle(MakeBuffer(counts, options), {}, &done), 1);
    EXPECT_EQ(ErrorOf(*detector), Error(1, "Zero image size is not acceptable"));
    EXPECT_EQ(detector->recognized, 0);
    EXPECT_EQ(counts.released, 1);
    EXPECT_TRUE(done.buffers.empty());
    EXPECT_EQ(detector->width, 0u) << "the size of a refused frame is not stored";
}

INSTANTIATE_TEST_SUITE_P(All, ZeroSizes,
                         testing::Values(ZeroCase{"Width", 0, 48, 16, 16}, ZeroCase{"Height", 64, 0, 16, 16},
                                         ZeroCase{"Size", 64, 48, 0, 16}, ZeroCase{"WidthOfNullData", 0, 48, 16, 0},
                                         ZeroCase{"HeightOfNullData", 64, 0, 16, 0},
                                         ZeroCase{"SizeOfNullData", 64, 48, 0, 0}, ZeroCase{"All", 0, 0, 0, 0}),
                         [](const auto& instance) { return instance.param.description; });

TEST_F(FrameIntake, TheEngineReceivesTheBuffersOwnPixels) {
    BufferOptions options;
    options.width = 4;
    options.height = 2;
    options.pixels = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    options.timeStamp = 99;
    detector->onRecognize = [&](FrameImage& frame, BufferPointer buffer) {
        EXPECT_EQ(frame.width, 4u);
        EXPECT_EQ(frame.height, 2u);
        EXPECT_EQ(frame.size, 12u);
        EXPECT_EQ(frame.data, buffer->GetData());
        EXPECT_FALSE(frame.storage);
        EXPECT_EQ(frame.data[11], 12);
        EXPECT_EQ(buffer->GetTimeStamp(), 99u);
    };
    EXPECT_EQ(Receive(MakeBuffer(counts, options)), 0);
    EXPECT_EQ(detector->recognized, 1);
    EXPECT_EQ(counts.released, 1);
}

TEST_F(FrameIntake, NullPixelsBecomeAnOwnedImageOfThatSizeWithZeroBytes) {
    BufferOptions options;
    options.width = 4;
    options.height = 2;
    options.size = 12;
    detector->onRecognize = [](FrameImage& frame, BufferPointer) {
        EXPECT_EQ(frame.size, 12u);
        ASSERT_NE(frame.data, nullptr);
        EXPECT_EQ(frame.storage.get(), frame.data);
        EXPECT_EQ(std::vector<std::uint8_t>(frame.data, frame.data + 12), std::vector<std::uint8_t>(12, 0));
    };
    EXPECT_EQ(Receive(MakeBuffer(counts, options)), 0);
    EXPECT_EQ(detector->recognized, 1);
}

TEST_F(FrameIntake, AStandardExceptionFromTheHookBecomesTheFramesError) {
    RecordingFrameDone done;
    detector->onRecognize = [](FrameImage&, BufferPointer) { throw std::runtime_error("lens cap"); };
    EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 64, 48, 5), {}, &done), 1);
    EXPECT_EQ(ErrorOf(*detector), Error(1, "lens cap"));
    EXPECT_EQ(counts.released, 1);
    EXPECT_TRUE(done.buffers.empty());
    EXPECT_EQ(detector->lastTimeStamp, 0u) << "the frame is dropped before its time is stored";
}

TEST_F(FrameIntake, AnyOtherExceptionFromTheHookHasItsOwnText) {
    RecordingFrameDone done;
    detector->onRecognize = [](FrameImage&, BufferPointer) { throw 42; };
    EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 64, 48, 5), {}, &done), 1);
    EXPECT_EQ(ErrorOf(*detector), Error(1, "Image processing exception"));
    EXPECT_EQ(counts.released, 1);
    EXPECT_TRUE(done.buffers.empty());
}

TEST_F(FrameIntake, AnExceptionOfTheFrameDoneCallbackDropsTheFrameToo) {
    RecordingFrameDone callback([](const HostCall&) { throw std::logic_error("full"); });
    EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 64, 48, 5), {}, &callback), 1);
    EXPECT_EQ(ErrorOf(*detector), Error(1, "full"));
    EXPECT_EQ(detector->lastTimeStamp, 0u);
}

TEST_F(FrameIntake, AHeldFrameIsNotReportedAsDoneAndTheNextOneIs) {
    RecordingFrameDone done;
    detector->onRecognize = [&](FrameImage&, BufferPointer) { detector->holdFrame = true; };
    EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 64, 48, 5), {}, &done), 0);
    EXPECT_TRUE(done.buffers.empty());
    EXPECT_EQ(detector->lastTimeStamp, 5u) << "a held frame counts as handled";
    EXPECT_EQ(counts.released, 1);
    detector->onRecognize = [&](FrameImage&, BufferPointer) { EXPECT_FALSE(detector->holdFrame); };
    EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 64, 48, 6), {}, &done), 0);
    EXPECT_EQ(done.buffers.size(), 1u);
}

TEST_F(FrameIntake, AFrameThatTheHookKeepsIsReleasedWithItsLastCopy) {
    BufferPointer kept;
    detector->onRecognize = [&](FrameImage&, BufferPointer buffer) { kept = buffer; };
    EXPECT_EQ(Receive(MakeFrame(counts, 64, 48, 5)), 0);
    EXPECT_EQ(counts.released, 0);
    EXPECT_EQ(kept.use_count(), 1) << "the detector has released it";
    kept.reset();
    EXPECT_EQ(counts.released, 1);
}

TEST_F(FrameIntake, AKeptFrameSurvivesTheHooksException) {
    BufferPointer kept;
    detector->onRecognize = [&](FrameImage&, BufferPointer buffer) {
        kept = buffer;
        throw std::runtime_error("later");
    };
    EXPECT_EQ(Receive(MakeFrame(counts, 64, 48, 5)), 1);
    EXPECT_EQ(counts.released, 0);
    kept.reset();
    EXPECT_EQ(counts.released, 1);
}

TEST_F(FrameIntake, ASuccessAfterAFailureLeavesNoError) {
    EXPECT_EQ(Receive(nullptr), 1);
    EXPECT_EQ(Receive(MakeFrame(counts, 64, 48, 5)), 0);
    EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
}

TEST_F(FrameIntake, TheTimeOfTheLastFrameIsKept) {
    Receive(MakeFrame(counts, 64, 48, 18446744073709551615u));
    EXPECT_EQ(detector->lastTimeStamp, 18446744073709551615u);
    Receive(MakeFrame(counts, 64, 48, 3));
    EXPECT_EQ(detector->lastTimeStamp, 3u);
}

TEST_F(FrameIntake, SettingsAreAppliedWhenTheSizeChangesAndOnlyThen) {
    EXPECT_EQ(detector->applied, 0);
    Receive(MakeFrame(counts, 64, 48, 1));
    EXPECT_EQ(detector->applied, 1);
    Receive(MakeFrame(counts, 64, 48, 2));
    EXPECT_EQ(detector->applied, 1);
    Receive(MakeFrame(counts, 66, 48, 3));
    EXPECT_EQ(detector->applied, 2);
    Receive(MakeFrame(counts, 66, 50, 4));
    EXPECT_EQ(detector->applied, 3);
    EXPECT_EQ(detector->width, 66u);
    EXPECT_EQ(detector->height, 50u);
}

TEST_F(FrameIntake, AHalfFrameIsHandledAtHalfItsHeightByADeinterlacer) {
    SettingsOf(*detector).SetBoolValue("use_half_cadr", true);
    BufferOptions options;
    options.width = 720;
    options.height = 576;
    options.pixels.resize(720 * 576 * 3 / 2);
    for (std::size_t row = 0; row < 576; ++row) {
        std::memset(options.pixels.data() + row * 720, static_cast<int>(row & 255), 720);
    }
    detector->onRecognize = [&](FrameImage& frame, BufferPointer buffer) {
        EXPECT_EQ(frame.width, 720u);
        EXPECT_EQ(frame.height, 288u);
        EXPECT_EQ(frame.size, 720u * 288u);
        EXPECT_NE(frame.data, buffer->GetData());
        for (std::size_t row = 0; row < 288; ++row) {
            ASSERT_EQ(frame.data[row * 720], static_cast<std::uint8_t>(2 * row & 255));
            ASSERT_EQ(frame.data[row * 720 + 719], static_cast<std::uint8_t>(2 * row & 255));
        }
    };
    EXPECT_EQ(Receive(MakeBuffer(counts, options)), 0);
    EXPECT_EQ(detector->recognized, 1);
    EXPECT_EQ(detector->effectiveHeight, 288u);
    EXPECT_EQ(detector->height, 576u);
    EXPECT_TRUE(detector->IsHalfFrame());
    using Deinterlacer = image_transform::ImageDeinterlacer<boost::gil::gray8_view_t>;
    ASSERT_EQ(detector->transformer.Steps().size(), 1u);
    EXPECT_NE(boost::dynamic_pointer_cast<Deinterlacer>(detector->transformer.Steps().front()), nullptr);
}

TEST_F(FrameIntake, AFrameOf639By576IsHandledWhole) {
    SettingsOf(*detector).SetBoolValue("use_half_cadr", true);
    detector->onRecognize = [&](FrameImage& frame, BufferPointer buffer) {
        EXPECT_EQ(frame.height, 576u);
        EXPECT_EQ(frame.data, buffer->GetData());
    };
    EXPECT_EQ(Receive(MakeFrame(counts, 639, 576, 1)), 0);
    EXPECT_EQ(detector->recognized, 1);
    EXPECT_EQ(detector->effectiveHeight, 576u);
    EXPECT_TRUE(detector->transformer.Steps().empty());
    EXPECT_FALSE(detector->IsHalfFrame());
}

TEST_F(FrameIntake, HalfFramesBeginAt640By480) {
    SettingsOf(*detector).SetBoolValue("use_half_cadr", true);
    EXPECT_EQ(detector->SetFrameSize(640, 480), 240u);
    EXPECT_TRUE(detector->IsHalfFrame());
    EXPECT_EQ(detector->SetFrameSize(640, 479), 479u);
    EXPECT_FALSE(detector->IsHalfFrame());
    EXPECT_EQ(detector->SetFrameSize(639, 480), 480u);
    EXPECT_FALSE(detector->IsHalfFrame());
    EXPECT_EQ(detector->SetFrameSize(640, 481), 240u) << "an odd height is halved downward";
    SettingsOf(*detector).SetBoolValue("use_half_cadr", false);
    EXPECT_EQ(detector->SetFrameSize(640, 480), 480u);
    EXPECT_FALSE(detector->IsHalfFrame());
}

TEST_F(FrameIntake, TheFullHeightDecidesAboutHalfFramesNotTheHalvedOne) {
    SettingsOf(*detector).SetBoolValue("use_half_cadr", true);
    detector->SetFrameSize(720, 576);
    EXPECT_EQ(detector->effectiveHeight, 288u);
    EXPECT_TRUE(detector->IsHalfFrame());
}

TEST_F(FrameIntake, SettingOnlyTheSizeAppliesNothing) {
    EXPECT_EQ(detector->SetFrameSize(100, 80), 80u);
    EXPECT_EQ(detector->width, 100u);
    EXPECT_EQ(detector->height, 80u);
    EXPECT_EQ(detector->effectiveHeight, 80u);
    EXPECT_EQ(detector->applied, 0);
    RefuseASetting(*detector);
    detector->SetFrameSize(100, 80);
    EXPECT_EQ(ErrorsOf(*detector).GetErrorCode(), 2816);
}

TEST_F(FrameIntake, SettingTheSizeAndApplyingRebuildsTheChain) {
    SettingsOf(*detector).SetBoolValue("use_half_cadr", true);
    RefuseASetting(*detector);
    detector->SetFrameSizeAndApply(720, 576);
    EXPECT_EQ(detector->effectiveHeight, 288u);
    EXPECT_EQ(detector->applied, 1);
    EXPECT_EQ(detector->transformer.Steps().size(), 1u);
    EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
    detector->SetFrameSizeAndApply(100, 80);
    EXPECT_EQ(detector->applied, 2);
    EXPECT_TRUE(detector->transformer.Steps().empty());
}

TEST_F(FrameIntake, RebuildingTheChainClearsItFirst) {
    SettingsOf(*detector).SetBoolValue("use_half_cadr", true);
    detector->SetFrameSize(720, 576);
    detector->RebuildTransforms();
    detector->RebuildTransforms();
    EXPECT_EQ(detector->transformer.Steps().size(), 1u);
    EXPECT_EQ(detector->applied, 0);
}

TEST_F(FrameIntake, HalfFramesSwitchedOnAfterTheSizeWasSeenTakeEffectInTheChainWithApplySettings) {
    Receive(MakeFrame(counts, 640, 480, 1));
    SettingsOf(*detector).SetBoolValue("use_half_cadr", true);
    detector->onRecognize = [](FrameImage& frame, BufferPointer) { EXPECT_EQ(frame.height, 480u); };
    Receive(MakeFrame(counts, 640, 480, 2));
    SettingsOf(*detector).ApplySettings();
    detector->onRecognize = [](FrameImage& frame, BufferPointer) { EXPECT_EQ(frame.height, 240u); };
    Receive(MakeFrame(counts, 640, 480, 3));
    EXPECT_EQ(detector->recognized, 3);
    EXPECT_EQ(detector->effectiveHeight, 480u) << "the geometry depends only on the size";
}

TEST_F(FrameIntake, AFailureToApplySettingsInsideASizeChangeIsTheFramesErrorAndTheFrameContinues) {
    RecordingFrameDone done;
    detector->onApplied = [] { throw std::runtime_error("no room"); };
    EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 64, 48, 9), {}, &done), 1);
    EXPECT_EQ(ErrorOf(*detector), Error(1, "no room"));
    EXPECT_EQ(detector->recognized, 1);
    EXPECT_EQ(done.buffers.size(), 1u);
    EXPECT_EQ(detector->lastTimeStamp, 9u);
}

// The size was already stored, so later frames of that size went through a chain that was not set up.
TEST_F(FrameIntake, SettingsThatCouldNotBeAppliedAreAppliedAgainByTheNextFrame) {
    detector->onApplied = [] { throw std::runtime_error("no room"); };
    EXPECT_EQ(Receive(MakeFrame(counts, 64, 48, 1)), 1);
    EXPECT_EQ(Receive(MakeFrame(counts, 64, 48, 2)), 1);
    EXPECT_EQ(ErrorOf(*detector), Error(1, "no room"));
    detector->onApplied = [] { throw 7; };
    EXPECT_EQ(Receive(MakeFrame(counts, 64, 48, 3)), 1);
    EXPECT_EQ(detector->applied, 3);
    detector->onApplied = nullptr;
    EXPECT_EQ(Receive(MakeFrame(counts, 64, 48, 4)), 0);
    EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
    EXPECT_EQ(Receive(MakeFrame(counts, 64, 48, 5)), 0);
    EXPECT_EQ(detector->applied, 4) << "once is enough";
}

TEST_F(FrameIntake, SettingsThatTheHostCouldNotApplyAreAppliedByTheNextFrame) {
    EXPECT_EQ(Receive(MakeFrame(counts, 64, 48, 1)), 0);
    detector->onApplied = [] { throw std::runtime_error("no room"); };
    SettingsOf(*detector).ApplySettings();
    EXPECT_EQ(ErrorOf(*detector), Error(1, "no room"));
    detector->onApplied = nullptr;
    EXPECT_EQ(Receive(MakeFrame(counts, 64, 48, 2)), 0);
    EXPECT_EQ(detector->applied, 3);
    EXPECT_EQ(Receive(MakeFrame(counts, 64, 48, 3)), 0);
    EXPECT_EQ(detector->applied, 3);
}

TEST_F(FrameIntake, ANonStandardFailureToApplySettingsInsideASizeChangeDropsTheFrame) {
    RecordingFrameDone done;
    detector->onApplied = [] { throw 7; };
    EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 64, 48, 9), {}, &done), 1);
    EXPECT_EQ(ErrorOf(*detector), Error(1, "Image processing exception"));
    EXPECT_EQ(detector->recognized, 0);
    EXPECT_TRUE(done.buffers.empty());
    EXPECT_EQ(counts.released, 1);
}

// Areas.

class DetectionRect : public FrameIntake {
  protected:
    void SetArea(std::int32_t left, std::int32_t top, std::int32_t right, std::int32_t bottom) {
        auto& settings = SettingsOf(*detector);
        settings.SetBoolValue("use_area", true);
        settings.SetIntValue("area_left", left);
        settings.SetIntValue("area_top", top);
        settings.SetIntValue("area_right", right);
        settings.SetIntValue("area_bottom", bottom);
    }
};

TEST_F(DetectionRect, IsEmptyBeforeTheFirstFrame) {
    EXPECT_EQ(Sides(detector->GetDetectionRect()), Rect(0, 0, 0, 0));
}

TEST_F(DetectionRect, IsTheWholeFrameWithoutAnArea) {
    detector->SetFrameSize(720, 576);
    EXPECT_EQ(Sides(detector->GetDetectionRect()), Rect(0, 0, 720, 576));
}

TEST_F(DetectionRect, IsTheConfiguredAreaOfTheEffectiveHeight) {
    SetArea(10, 20, 90, 75);
    SettingsOf(*detector).SetBoolValue("use_half_cadr", true);
    detector->SetFrameSize(720, 576);
    EXPECT_EQ(Sides(detector->GetDetectionRect()), Rect(72, 57, 648, 216));
    SettingsOf(*detector).SetBoolValue("use_area", false);
    EXPECT_EQ(Sides(detector->GetDetectionRect()), Rect(0, 0, 720, 288));
}

TEST_F(DetectionRect, OfASingleCallIsItsOwnArea) {
    SetArea(10, 20, 90, 75);
    int seen = 0;
    detector->onRecognize = [&](FrameImage&, BufferPointer) {
        ++seen;
        EXPECT_EQ(Sides(detector->GetDetectionRect()), Rect(20, 40, 60, 80));
    };
    ReceiveSingle(MakeFrame(counts, 200, 100, 1), {10, 40, 20, 40});
    detector->onRecognize = [&](FrameImage&, BufferPointer) {
        ++seen;
        EXPECT_EQ(Sides(detector->GetDetectionRect()), Rect(20, 20, 180, 75));
    };
    Receive(MakeFrame(counts, 200, 100, 2));
    EXPECT_EQ(seen, 2);
}

TEST_F(DetectionRect, OfASingleCallWithAnEmptyAreaIsTheWholeFrameEvenWhenAnAreaIsConfigured) {
    SetArea(10, 20, 90, 75);
    int seen = 0;
    detector->onRecognize = [&](FrameImage&, BufferPointer) {
        ++seen;
        EXPECT_EQ(Sides(detector->GetDetectionRect()), Rect(0, 0, 200, 100));
    };
    for (const FrameArea area : {FrameArea{10, 40, 0, 40}, FrameArea{10, 40, 20, 0}, FrameArea{10, 40, -5, 40},
                                 FrameArea{10, 40, 20, -1}, FrameArea{}}) {
        ReceiveSingle(MakeFrame(counts, 200, 100, 1), area);
    }
    SingleReceiverOf(*detector).ReceiveSingle(MakeFrame(counts, 200, 100, 1), nullptr, nullptr);
    EXPECT_EQ(seen, 6);
}

TEST_F(DetectionRect, OfASingleCallWithAnEmptyAreaIsTheWholeHalfFrame) {
    SetArea(10, 20, 90, 75);
    SettingsOf(*detector).SetBoolValue("use_half_cadr", true);
    int seen = 0;
    detector->onRecognize = [&](FrameImage&, BufferPointer) {
        ++seen;
        EXPECT_EQ(Sides(detector->GetDetectionRect()), Rect(0, 0, 720, 288));
    };
    for (const FrameArea area : {FrameArea{10, 40, 0, 40}, FrameArea{10, 40, 20, 0}, FrameArea{}}) {
        EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 720, 576, 1), area), 0);
    }
    EXPECT_EQ(seen, 3);
    detector->onRecognize = [&](FrameImage&, BufferPointer) {
        ++seen;
        EXPECT_EQ(Sides(detector->GetDetectionRect()), Rect(72, 57, 648, 216));
    };
    EXPECT_EQ(Receive(MakeFrame(counts, 720, 576, 2)), 0);
    EXPECT_EQ(seen, 4) << "the configured area applies again after the single calls";
}

TEST_F(DetectionRect, WrapsItsProductsAndRoundsTowardZero) {
    SetArea(largest, -150, 3, smallest);
    detector->SetFrameSize(250, 99);
    // 250 x 2147483647 wraps to -250; 99 x -150 / 100 is -148.5; 250 x 3 / 100 is 7.5; 99 x -2147483648 wraps to
    // itself.
    EXPECT_EQ(Sides(detector->GetDetectionRect()), Rect(-2, -148, 7, -21474836));
}

TEST_F(DetectionRect, WrapsTheSumsOfASingleCallsArea) {
    std::array<std::int32_t, 4> stored = {};
    detector->onRecognize = [&](FrameImage&, BufferPointer) {
        EXPECT_TRUE(detector->singleAreaValid);
        stored = {detector->singleArea.left, detector->singleArea.top, detector->singleArea.right,
                  detector->singleArea.bottom};
    };
    ReceiveSingle(MakeFrame(counts, 200, 100, 1), {largest, -5, 1, largest});
    EXPECT_EQ(stored, Rect(largest, -5, smallest, largest - 5));
}

TEST_F(FrameIntake, BeginAndEndOfASingleCallAreSeparateOperations) {
    detector->SetFrameSize(200, 100);
    detector->BeginSingleCall({1, 2, 3, 4});
    EXPECT_TRUE(detector->inSingleCall);
    EXPECT_TRUE(detector->singleAreaActive);
    EXPECT_TRUE(detector->singleAreaValid);
    EXPECT_EQ(Sides(detector->GetDetectionRect()), Rect(2, 2, 8, 6));
    SingleReceiverOf(*detector).SetIntValue("value", 5);
    detector->singleCallFlag = true;
    detector->EndSingleCall();
    EXPECT_FALSE(detector->inSingleCall);
    EXPECT_FALSE(detector->singleAreaActive);
    EXPECT_FALSE(detector->singleCallFlag);
    EXPECT_TRUE(detector->singleAreaValid) << "plate events still read the area";
    EXPECT_EQ(Sides(detector->GetDetectionRect()), Rect(0, 0, 200, 100));
    EXPECT_TRUE(detector->frameValues.IsEmpty());
}

TEST_F(FrameIntake, TheStateOfASingleCallIsVisibleOnlyInsideIt) {
    detector->onRecognize = [&](FrameImage&, BufferPointer) {
        EXPECT_TRUE(detector->inSingleCall);
        EXPECT_TRUE(detector->singleAreaActive);
    };
    ReceiveSingle(MakeFrame(counts, 64, 48, 1), {0, 0, 1, 1});
    EXPECT_FALSE(detector->inSingleCall);
    EXPECT_FALSE(detector->singleAreaActive);
    detector->onRecognize = [&](FrameImage&, BufferPointer) {
        EXPECT_FALSE(detector->inSingleCall);
        EXPECT_FALSE(detector->singleAreaActive);
    };
    Receive(MakeFrame(counts, 64, 48, 2));
    EXPECT_EQ(detector->recognized, 2);
}

// Values of one call.

TEST_F(FrameIntake, FrameValuesExistInsideTheSingleCallAndNotAfterIt) {
    SingleReceiverOf(*detector).SetStringValue("plate", "B1");
    SingleReceiverOf(*detector).SetDoubleValue("speed", 0.5);
    bool wasSeen = false;
    detector->onRecognize = [&](FrameImage&, BufferPointer) {
        std::string text;
        double speed = 0;
        wasSeen = detector->GetFrameString("plate", text) == 0 && detector->GetFrameDouble("speed", speed) == 0 &&
                  text == "B1" && speed == 0.5;
    };
    ReceiveSingle(MakeFrame(counts, 64, 48, 1), {});
    EXPECT_TRUE(wasSeen);
    EXPECT_TRUE(detector->frameValues.IsEmpty());
}

TEST_F(FrameIntake, FrameValuesAreClearedAfterARefusedFrameToo) {
    SingleReceiverOf(*detector).SetIntValue("n", 1);
    EXPECT_EQ(ReceiveSingle(nullptr, {}), 1);
    EXPECT_TRUE(detector->frameValues.IsEmpty());
    EXPECT_FALSE(detector->inSingleCall);
    SingleReceiverOf(*detector).SetIntValue("n", 1);
    detector->onRecognize = [](FrameImage&, BufferPointer) { throw 1; };
    EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 64, 48, 1), {}), 1);
    EXPECT_TRUE(detector->frameValues.IsEmpty());
}

TEST_F(FrameIntake, FrameValuesOutliveAnOrdinaryFrame) {
    SingleReceiverOf(*detector).SetIntValue("n", 4);
    Receive(MakeFrame(counts, 64, 48, 1));
    std::int32_t number = 0;
    EXPECT_EQ(detector->GetFrameInt("n", number), 0);
    EXPECT_EQ(number, 4);
}

// The library's operations that the host may call inside its own.

class CallsFromInside : public FrameIntake {
  protected:
    // The calls that any operation may make at any time.
    void CallQuietly() {
        EXPECT_NE(
            static_cast<OKM8::Analytics::IDetector*>(detector.get())->QueryContract(OKM8::ContractName::IMediaReceiver),
            nullptr);
        EXPECT_EQ(SettingsOf(*detector).SetIntValue("area_left", 44), 0);
        EXPECT_EQ(SingleReceiverOf(*detector).SetIntValue("anything", 44), 0);
        EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
        EXPECT_EQ(SettingsOf(*detector).SetIntValue("nothing", 1), 2816);
        EXPECT_EQ(ErrorOf(*detector), Error(2816, "nothing"));
        ++quietCalls;
    }

    int quietCalls = 0;
};

TEST_F(CallsFromInside, FrameDoneSettersAndErrorReadsWorkAndAreNotTheFramesOutcome) {
    RecordingFrameDone done([this](const HostCall&) { CallQuietly(); });
    EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 64, 48, 1), {}, &done), 0);
    EXPECT_EQ(quietCalls, 1);
    EXPECT_EQ(detector->area.left, 44);
    EXPECT_EQ(ErrorOf(*detector), Error(2816, "nothing")) << "the last refusal stays to be read";
}

TEST_F(CallsFromInside, ReleaseSettersAndErrorReadsWorkAndAreNotTheFramesOutcome) {
    BufferOptions options;
    options.pixels.assign(64 * 48, 5);
    counts.onCall = On(Operation::Release, [this] { CallQuietly(); });
    EXPECT_EQ(Receive(MakeBuffer(counts, options)), 0);
    EXPECT_EQ(quietCalls, 1);
    options.isComposite = false;
    EXPECT_EQ(Receive(MakeBuffer(counts, options)), 1);
    EXPECT_EQ(quietCalls, 2);
    EXPECT_EQ(ErrorOf(*detector), Error(1, "inputData is not an ICompositeBuffer"));
}

TEST_F(CallsFromInside, ReleaseSettersDoNotClearTheFramesError) {
    BufferOptions options;
    options.pixels.assign(64 * 48, 5);
    counts.onCall = On(Operation::Release, [this] {
        EXPECT_EQ(SettingsOf(*detector).SetIntValue("area_left", 44), 0);
        EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
    });
    detector->onRecognize = [](FrameImage&, BufferPointer) { throw std::runtime_error("lens cap"); };
    EXPECT_EQ(Receive(MakeBuffer(counts, options)), 1);
    EXPECT_EQ(counts.released, 1);
    EXPECT_EQ(ErrorOf(*detector), Error(1, "lens cap"));
}

TEST_F(CallsFromInside, FrameDoneSettingsAreAppliedAndTheirFailureIsNotTheFramesOutcome) {
    RecordingFrameDone done([this](const HostCall&) {
        SettingsOf(*detector).SetBoolValue("use_half_cadr", true);
        SettingsOf(*detector).ApplySettings();
        EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
        EXPECT_EQ(detector->transformer.Steps().size(), 1u);
        detector->onApplied = [] { throw std::runtime_error("no room"); };
        SettingsOf(*detector).ApplySettings();
        EXPECT_EQ(ErrorOf(*detector), Error(1, "no room"));
        detector->onApplied = nullptr;
    });
    EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 640, 480, 1), {}, &done), 0);
    EXPECT_EQ(done.buffers.size(), 1u);
    EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
    EXPECT_EQ(detector->lastTimeStamp, 1u);
}

TEST_F(CallsFromInside, FrameDoneAFailedFrameIsNotTheOuterFramesOutcome) {
    RecordingFrameDone done([this](const HostCall&) {
        EXPECT_EQ(Receive(nullptr), 1);
        EXPECT_EQ(ErrorOf(*detector), Error(1, "Input data is null"));
        EXPECT_EQ(Receive(MakeFrame(counts, 0, 48, 2)), 1);
        EXPECT_EQ(ErrorOf(*detector), Error(1, "Zero image size is not acceptable"));
    });
    EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 64, 48, 1), {}, &done), 0);
    EXPECT_EQ(done.buffers.size(), 1u);
    EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
    EXPECT_EQ(counts.released, 2);
}

TEST_F(CallsFromInside, FrameDoneASuccessfulFrameDoesNotClearTheOuterFramesError) {
    const std::string text =
        "an error whose text is longer than a short string and longer than what is reserved for it";
    detector->onRecognize = [&](FrameImage&, const BufferPointer& buffer) {
        if (buffer->GetTimeStamp() == 1) {
            detector->Fail(text.c_str());
        }
    };
    RecordingFrameDone done([&](const HostCall&) {
        EXPECT_EQ(ErrorOf(*detector), Error(1, text));
        EXPECT_EQ(Receive(MakeFrame(counts, 64, 48, 2)), 0);
        EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
        EXPECT_EQ(Receive(MakeFrame(counts, 0, 48, 3)), 1);
        SettingsOf(*detector).ApplySettings();
        EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
    });
    EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 64, 48, 1), {}, &done), 1);
    EXPECT_EQ(done.buffers.size(), 1u);
    EXPECT_EQ(ErrorOf(*detector), Error(1, text));
}

TEST_F(CallsFromInside, FrameDoneAnExceptionOfTheCallbackIsTheFramesErrorAfterAnyInnerFrame) {
    RecordingFrameDone done([&](const HostCall&) {
        EXPECT_EQ(Receive(MakeFrame(counts, 64, 48, 2)), 0);
        throw std::logic_error("full");
    });
    EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 64, 48, 1), {}, &done), 1);
    EXPECT_EQ(ErrorOf(*detector), Error(1, "full"));
    EXPECT_EQ(counts.released, 2);
}

// Each frame uses its own size, area and kind of call.
TEST_F(CallsFromInside, FrameDoneFramesAreHandledSeparately) {
    struct Seen {
        std::uint64_t time;
        std::array<std::int32_t, 4> rect;
        bool isSingle;
        std::uint32_t width;
    };
    std::vector<Seen> seen;
    detector->onRecognize = [&](FrameImage& frame, const BufferPointer& buffer) {
        seen.push_back(
            {buffer->GetTimeStamp(), Sides(detector->GetDetectionRect()), detector->inSingleCall, frame.width});
    };
    RecordingFrameDone innermost;
    RecordingFrameDone inner([&](const HostCall&) {
        EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 100, 100, 4), {10, 10, 10, 10}, &innermost), 0);
    });
    RecordingFrameDone outer([&](const HostCall&) {
        EXPECT_EQ(Receive(MakeFrame(counts, 200, 100, 2)), 0);
        EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 300, 100, 3), {50, 0, 50, 100}, &inner), 0);
        EXPECT_EQ(Receive(MakeFrame(counts, 200, 100, 5)), 0);
    });
    SingleReceiverOf(*detector).SetIntValue("anything", 1);
    EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 400, 100, 1), {0, 0, 25, 100}, &outer), 0);

    ASSERT_EQ(seen.size(), 5u);
    const Seen expected[] = {{1, Rect(0, 0, 100, 100), true, 400},
                             {2, Rect(0, 0, 200, 100), false, 200},
                             {3, Rect(150, 0, 300, 100), true, 300},
                             {4, Rect(10, 10, 20, 20), true, 100},
                             {5, Rect(0, 0, 200, 100), false, 200}};
    for (std::size_t index = 0; index < 5; ++index) {
        SCOPED_TRACE(index);
        EXPECT_EQ(seen[index].time, expected[index].time);
        EXPECT_EQ(seen[index].rect, expected[index].rect);
        EXPECT_EQ(seen[index].isSingle, expected[index].isSingle);
        EXPECT_EQ(seen[index].width, expected[index].width);
    }
    EXPECT_EQ(innermost.buffers.size(), 1u);
    EXPECT_FALSE(detector->inSingleCall);
    EXPECT_FALSE(detector->singleAreaActive);
    EXPECT_TRUE(detector->frameValues.IsEmpty());
    EXPECT_EQ(detector->lastTimeStamp, 1u) << "the outer frame is the last one to end";
    EXPECT_EQ(counts.released, 5);
    detector->onRecognize = nullptr;
    EXPECT_EQ(Receive(MakeFrame(counts, 400, 100, 6)), 0);
}

TEST_F(CallsFromInside, FrameDoneAFrameMayBeHeldAndTheOuterOneIsNot) {
    detector->onRecognize = [&](FrameImage&, const BufferPointer& buffer) {
        detector->holdFrame = buffer->GetTimeStamp() == 2;
    };
    RecordingFrameDone held;
    RecordingFrameDone done(
        [&](const HostCall&) { EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 64, 48, 2), {}, &held), 0); });
    EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 64, 48, 1), {}, &done), 0);
    EXPECT_EQ(done.buffers.size(), 1u);
    EXPECT_TRUE(held.buffers.empty());
    EXPECT_EQ(ReceiveSingle(MakeFrame(counts, 64, 48, 3), {}, &done), 0);
    EXPECT_EQ(done.buffers.size(), 2u);
}

TEST_F(FrameIntake, BuffersAreReleasedOnceInEveryCase) {
    std::uint32_t random = 12345;
    const auto next = [&](std::uint32_t bound) {
        random = random * 1664525u + 1013904223u;
        return (random >> 8) % bound;
    };
    std::vector<BufferPointer> kept;
    detector->onRecognize = [&](FrameImage&, BufferPointer buffer) {
        if (next(3) == 0) {
            kept.push_back(buffer);
        }
        if (next(4) == 0) {
            throw std::runtime_error("sometimes");
        }
        if (next(4) == 0) {
            throw 1;
        }
        detector->holdFrame = next(2) == 0;
    };
    for (int frame = 0; frame < 2000; ++frame) {
        BufferOptions options;
        options.width = next(3) * 8;
        options.height = next(3) * 8;
        options.pixels.assign(next(3) == 0 ? 0 : options.width * options.height, 1);
        options.size = options.width * options.height;
        options.isComposite = next(8) != 0;
        RecordingFrameDone done;
        if (next(2) == 0) {
            Receive(MakeBuffer(counts, options));
        } else {
            ReceiveSingle(MakeBuffer(counts, options), {1, 1, 5, 5}, &done);
        }
        if (kept.size() > 5) {
            kept.erase(kept.begin());
        }
        ASSERT_EQ(counts.made - counts.released, static_cast<int>(kept.size()));
    }
    EXPECT_GT(detector->recognized, 100);
    kept.clear();
}

}  // namespace
