// The detector's tables, slot by slot.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <cstdlib>
#include <new>

#include "tests/engine/probe_detector.h"
#include "tests/support/table_slots.h"

namespace {

using engine_tests::EngineTest;
using engine_tests::Error;
using engine_tests::FoundPlate;
using engine_tests::ProbeDetector;
using plate_recognition::PlateDescription;
using plate_recognition::RecognitionResult;
using table_slots::Call;
using testing::ElementsAre;

using BufferPointer = boost::shared_ptr<OKM8::MFF::ICompositeBuffer>;

class EngineTables : public EngineTest {
  protected:
    ~EngineTables() override { End(); }

    template <class Part>
    void* PartOf() {
        Part& part = Detector();
        return &part;
    }
    void* Primary() { return PartOf<OKM8::Analytics::IDetector>(); }
    std::vector<void*> Parts() {
        return {PartOf<OKM8::Analytics::IDetector>(),
                PartOf<OKM8::Analytics::IMediaReceiver>(),
                PartOf<OKM8::Analytics::IMediaReceiverSingle2>(),
                PartOf<OKM8::IAsyncAdjuster>(),
                PartOf<OKM8::IErrorInfoProvider>(),
                PartOf<OKM8::Analytics::IMediaReceiverController>()};
    }
    BufferPointer Buffer() {
        return BufferPointer(static_cast<OKM8::MFF::ICompositeBuffer*>(recording_host::MakeFrame(counts, 64, 48, 5)),
                             [](OKM8::MFF::ICompositeBuffer* buffer) { buffer->Release(); });
    }
};

TEST_F(EngineTables, EveryPartReturnsTheSamePartForEveryName) {
    const std::vector<void*> parts = Parts();
    const std::vector<std::pair<const char*, void*>> namedParts = {
        {"struct OKM8::IContract", parts[0]},
        {"struct OKM8::IDestroyable", parts[0]},
        {"struct OKM8::Analytics::IDetector", parts[0]},
        {"struct OKM8::Analytics::IMediaReceiver", parts[1]},
        {"struct OKM8::Analytics::IMediaReceiverSingle", parts[2]},
        {"struct OKM8::Analytics::IMediaReceiverSingle2", parts[2]},
        {"struct OKM8::IAsyncAdjuster", parts[3]},
        {"struct OKM8::IErrorInfoProvider", parts[4]},
        {"struct OKM8::Analytics::IMediaReceiverController", parts[5]},
        {"struct OKM8::Analytics::IModule", nullptr},
        {nullptr, nullptr},
    };
    for (void* const part : parts) {
        for (const auto& [name, expected] : namedParts) {
            EXPECT_EQ(Call<void*>(part, 0, name), expected) << (name != nullptr ? name : "null");
            EXPECT_EQ(Call<void*>(part, 1, name), expected) << (name != nullptr ? name : "null");
        }
    }
}

TEST_F(EngineTables, Slots4And10AreThisDetectorsOwn) {
    Frame(1);
    ASSERT_EQ(Detector().plateRangeMax, 640);
    Call<void>(Primary(), 4);
    EXPECT_EQ(Detector().plateRangeMax, -1);
    EXPECT_EQ(Detector().transformer.Steps().size(), 1u);

    std::vector<std::uint8_t> pixels(64 * 48 * 3);
    plate_recognition::FrameImage frame(64, 48, static_cast<std::uint32_t>(pixels.size()), pixels.data());
    Call<void, plate_recognition::FrameImage&, BufferPointer>(Primary(), 10, frame, Buffer());
    EXPECT_EQ(fake_engine::RecognizeCalls().back().image.pixels, pixels.data());
    EXPECT_EQ(Detector().frameCount, 2u);
}

TEST_F(EngineTables, TheLastSlotsOfTheBaseAreStillItsOwn) {
    EXPECT_EQ(Call<std::string>(Primary(), 17), ".");
    const OKM8::FrameArea area = {1, 2, 3, 4};
    Call<void, const OKM8::FrameArea&>(Primary(), 23, area);
    EXPECT_TRUE(Detector().inSingleCall);
    Call<void>(Primary(), 24);
    EXPECT_FALSE(Detector().inSingleCall);
}

TEST_F(EngineTables, Slots25To27AreTheTypeTheArgumentsAndTheEvent) {
    EXPECT_EQ(Call<std::string>(Primary(), 25), "VEXLANE");

    PlateDescription description;
    description.text = L"AB";
    const RecognitionResult result(Buffer(), description, 1, 55);

    OKM8::Analytics::ITargetAdjuster* target = nullptr;
    OKM8::Analytics::IDetectorEventRaiser* raiser = nullptr;
    ASSERT_TRUE(Detector().CreateEventWithTarget("filled", &target, &raiser));
    Call<void, const RecognitionResult&, OKM8::Analytics::ITargetValues&>(Primary(), 26, result, *target);
    ASSERT_EQ(host.Events().back().targets.size(), 1u);
    EXPECT_EQ(host.Events().back().targets[0].values[0].text, "AB");
    EXPECT_NE(host.Events().back().targets[0].Find("lpf_y3"), nullptr);
    EXPECT_EQ(host.Events().back().targets[0].Find("all_tracks"), nullptr);
    EXPECT_EQ(host.Events().back().raised, 0);
    raiser->Discard();

    const std::vector<plate_recognition::TrackPoint> track;
    Call<void, const RecognitionResult&, const std::vector<plate_recognition::TrackPoint>&>(Primary(), 27, result,
                                                                                            track);
    EXPECT_EQ(host.Events().back().name, "event");
    EXPECT_EQ(host.Events().back().timeMs, 55);
    EXPECT_EQ(host.Events().back().raised, 1);
}

TEST_F(EngineTables, TheTrackersSinkHasTheResultAndThenTheRelease) {
    void* const sink = PartOf<ILicencePlateTrackerResultSink>();
    Detector().pendingResults[0] = boost::make_shared<RecognitionResult>(Buffer(), PlateDescription{}, 0u, 5u);
    Detector().pendingResults[1] = boost::make_shared<RecognitionResult>(Buffer(), PlateDescription{}, 1u, 5u);
    const auto reading = boost::make_shared<LicencePlate>();
    const std::vector<LicencePlatePtr> track = {reading};
    Call<void, ILicencePlateTracker*, LicencePlatePtr, const std::vector<LicencePlatePtr>&, std::int32_t>(
        sink, 0, nullptr, reading, track, 3);
    EXPECT_EQ(host.Events().size(), 1u);
    EXPECT_EQ(Detector().pendingResults.size(), 1u);
    reading->id = 1;
    Call<void, ILicencePlateTracker*, LicencePlatePtr>(sink, 1, nullptr, reading);
    EXPECT_EQ(host.Events().size(), 1u);
    EXPECT_EQ(Detector().pendingResults.size(), 0u);
}

TEST_F(EngineTables, AFrameCanBePlayedThroughRawTables) {
    ReportAtOnce();
    Find(FoundPlate{});
    const std::vector<void*> parts = Parts();
    EXPECT_EQ(Call<std::int32_t>(parts[3], 5, "zone_width", std::int32_t{50}), 0);
    Call<void>(parts[3], 7);
    EXPECT_EQ(Call<std::int32_t>(parts[1], 3, recording_host::MakeFrame(counts, 640, 480, 1)), 0);
    EXPECT_EQ(Call<std::int32_t>(parts[4], 3), 0);
    EXPECT_STREQ(Call<const char*>(parts[4], 4), "");
    EXPECT_EQ(host.Events().size(), 1u);
    EXPECT_EQ(fake_engine::RangeCalls().back().maximum, 320);
    Call<void>(Call<void*>(parts[5], 0, "struct OKM8::IDestroyable"), 3);
    detector.release();
    EXPECT_EQ(counts.released, counts.made);
}

TEST_F(EngineTables, TheDestructorSlotOfEveryPartDestroysAndFreesTheWholeDetectorDuringATrack) {
    for (std::size_t part = 0; part < 6; ++part) {
        Find(FoundPlate{});
        Frame(1);
        void* const address = Parts()[part];
        detector.release();
        Call<void*>(address, 2, 1u);  // checked by the leak and address sanitizers
        EXPECT_EQ(counts.released, counts.made) << part;
    }
}

TEST_F(EngineTables, TheDestructorSlotWithoutTheFlagKeepsTheMemory) {
    for (std::size_t part = 0; part < 6; ++part) {
        void* const memory = std::malloc(sizeof(ProbeDetector));
        detector.reset(new (memory) ProbeDetector(host.Peer(), host.Object()));
        Find(FoundPlate{});
        Frame(1);
        void* const address = Parts()[part];
        detector.release();
        EXPECT_EQ(Call<void*>(address, 2, 0u), memory);
        EXPECT_EQ(counts.released, counts.made) << part;
        std::free(memory);
    }
}

}  // namespace
