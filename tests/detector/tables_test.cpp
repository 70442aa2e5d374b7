// The detector as a host of another compiler uses it: contract names, and virtual tables slot by slot.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <stdexcept>

#include "sdk/contract_names.h"
#include "tests/detector/test_detector.h"
#include "tests/support/recording_debug_output.h"
#include "tests/support/table_slots.h"

namespace {

using detector_tests::BufferPointer;
using detector_tests::DetectorPointer;
using detector_tests::Error;
using detector_tests::ErrorOf;
using detector_tests::FrameImage;
using detector_tests::MakeDetector;
using detector_tests::RefuseASetting;
using detector_tests::SettingsOf;
using detector_tests::TestDetector;
using recording_host::MakeFrame;
using table_slots::Call;
using testing::ElementsAre;

namespace ContractName = OKM8::ContractName;

constexpr int destructorSlot = 2;
constexpr int firstOwnSlot = 3;

class DetectorTables : public testing::Test {
  protected:
    template <class Part>
    void* PartOf() {
        Part& part = *detector;
        return &part;
    }
    void* Primary() { return PartOf<OKM8::Analytics::IDetector>(); }
    void* Receiver() { return PartOf<OKM8::Analytics::IMediaReceiver>(); }
    void* SingleReceiver() { return PartOf<OKM8::Analytics::IMediaReceiverSingle2>(); }
    void* Adjuster() { return PartOf<OKM8::IAsyncAdjuster>(); }
    void* ErrorInfo() { return PartOf<OKM8::IErrorInfoProvider>(); }
    void* Controller() { return PartOf<OKM8::Analytics::IMediaReceiverController>(); }

    recording_host::BufferCounts counts;
    recording_host::RecordingHost host;
    DetectorPointer detector = MakeDetector(host);
};

struct NamedPart {
    const char* name;
    void* expected;
};

TEST_F(DetectorTables, EveryContractNameReturnsItsPartFromEveryPartThroughBothSlots) {
    const std::vector<NamedPart> namedParts = {
        {"struct OKM8::IContract", Primary()},
        {"struct OKM8::IDestroyable", Primary()},
        {"struct OKM8::Analytics::IDetector", Primary()},
        {"struct OKM8::Analytics::IMediaReceiver", Receiver()},
        {"struct OKM8::Analytics::IMediaReceiverSingle", SingleReceiver()},
        {"struct OKM8::Analytics::IMediaReceiverSingle2", SingleReceiver()},
        {"struct OKM8::IAsyncAdjuster", Adjuster()},
        {"struct OKM8::IErrorInfoProvider", ErrorInfo()},
        {"struct OKM8::Analytics::IMediaReceiverController", Controller()},
        {nullptr, nullptr},
        {"", nullptr},
        {"struct OKM8::Analytics::IModule", nullptr},
        {"struct OKM8::PLUGIN::IPluginModule", nullptr},
        {"struct OKM8::MFF::ICompositeBuffer", nullptr},
        {"struct OKM8::ILogger", nullptr},
        {"OKM8::IContract", nullptr},
        {"class OKM8::IContract", nullptr},
        {"struct OKM8::icontract", nullptr},
        {"struct OKM8::IContract ", nullptr},
        {" struct OKM8::IContract", nullptr},
        {"struct OKM8::IContrac", nullptr},
        {"struct OKM8::Analytics::IMediaReceiverSingle3", nullptr},
        {"\xFF\xFE%s%n", nullptr},
    };
    for (void* const part : {Primary(), Receiver(), SingleReceiver(), Adjuster(), ErrorInfo(), Controller()}) {
        for (const NamedPart& named : namedParts) {
            for (const int slot : {0, 1}) {
                EXPECT_EQ(Call<void*>(part, slot, named.name), named.expected)
                    << (named.name != nullptr ? named.name : "null") << " in slot " << slot;
            }
        }
    }
    EXPECT_EQ(detector->QueryContract(ContractName::IMediaReceiver), Receiver());
    EXPECT_EQ(std::as_const(*detector).QueryContract(ContractName::IMediaReceiver), Receiver());
    // A very long name.
    EXPECT_EQ(Call<void*>(Primary(), 0, std::string(100000, 'x').c_str()), nullptr);
}

TEST_F(DetectorTables, ThePartsAreInTheOrderOfTheBases) {
    EXPECT_EQ(Primary(), static_cast<void*>(detector.get()));
    EXPECT_LT(Primary(), Receiver());
    EXPECT_LT(Receiver(), SingleReceiver());
    EXPECT_LT(SingleReceiver(), Adjuster());
    EXPECT_LT(Adjuster(), ErrorInfo());
    EXPECT_LT(ErrorInfo(), Controller());
}

TEST_F(DetectorTables, AReceiverReceivesInItsFirstOwnSlot) {
    EXPECT_EQ(Call<std::int32_t>(Receiver(), firstOwnSlot, MakeFrame(counts, 64, 48, 3)), 0);
    EXPECT_EQ(detector->recognized, 1);
    EXPECT_EQ(Call<std::int32_t>(Receiver(), firstOwnSlot, static_cast<OKM8::MFF::IMultimediaBuffer*>(nullptr)), 1);
    EXPECT_EQ(counts.released, 1);
}

TEST_F(DetectorTables, ASingleReceiverReceivesAndThenSetsTextDoubleIntegerAndBoolean) {
    int slot = firstOwnSlot;
    const OKM8::FrameArea area = {10, 20, 30, 40};
    recording_host::RecordingFrameDone done;
    detector->onRecognize = [&](FrameImage&, BufferPointer) {
        EXPECT_TRUE(detector->inSingleCall);
        EXPECT_EQ(detector->singleArea.left, 10);
        EXPECT_EQ(detector->singleArea.top, 20);
        EXPECT_EQ(detector->singleArea.right, 40);
        EXPECT_EQ(detector->singleArea.bottom, 60);
    };
    EXPECT_EQ(Call<std::int32_t>(SingleReceiver(), slot++, MakeFrame(counts, 64, 48, 3), &area,
                                 static_cast<OKM8::IContract*>(&done)),
              0);
    EXPECT_EQ(detector->recognized, 1);
    EXPECT_EQ(done.buffers.size(), 1u);
    EXPECT_EQ(Call<std::int32_t>(SingleReceiver(), slot++, "s", "text"), 0);
    EXPECT_EQ(Call<std::int32_t>(SingleReceiver(), slot++, "d", 2.5), 0);
    EXPECT_EQ(Call<std::int32_t>(SingleReceiver(), slot++, "i", std::int32_t{-6}), 0);
    EXPECT_EQ(Call<std::int32_t>(SingleReceiver(), slot++, "b", true), 0);
    std::string text;
    double real = 0;
    std::int32_t number = 0;
    bool boolean = false;
    EXPECT_EQ(detector->GetFrameString("s", text), 0);
    EXPECT_EQ(detector->GetFrameDouble("d", real), 0);
    EXPECT_EQ(detector->GetFrameInt("i", number), 0);
    EXPECT_EQ(detector->GetFrameBool("b", boolean), 0);
    EXPECT_EQ(text, "text");
    EXPECT_EQ(real, 2.5);
    EXPECT_EQ(number, -6);
    EXPECT_TRUE(boolean);
}

TEST_F(DetectorTables, AnAdjusterSetsTextDoubleIntegerAndBooleanAndThenApplies) {
    int slot = firstOwnSlot;
    EXPECT_EQ(Call<std::int32_t>(Adjuster(), slot++, "name", "gate"), 0);
    EXPECT_EQ(Call<std::int32_t>(Adjuster(), slot++, "name", 2.5), 2816);
    EXPECT_EQ(Call<std::int32_t>(Adjuster(), slot++, "area_right", std::int32_t{50}), 0);
    EXPECT_EQ(Call<std::int32_t>(Adjuster(), slot++, "use_area", true), 0);
    Call<void>(Adjuster(), slot++);
    EXPECT_EQ(detector->name, "gate");
    EXPECT_EQ(detector->area.right, 50);
    EXPECT_TRUE(detector->useArea);
    EXPECT_EQ(detector->applied, 1);
}

TEST_F(DetectorTables, AnErrorProviderReturnsCodeAndThenText) {
    EXPECT_EQ(Call<std::int32_t>(ErrorInfo(), firstOwnSlot), 0);
    EXPECT_STREQ(Call<const char*>(ErrorInfo(), firstOwnSlot + 1), "");
    RefuseASetting(*detector);
    EXPECT_EQ(Call<std::int32_t>(ErrorInfo(), firstOwnSlot), 2816);
    EXPECT_STREQ(Call<const char*>(ErrorInfo(), firstOwnSlot + 1), "no such setting");
}

TEST_F(DetectorTables, AControllerReturns0FromEachOfItsFiveSlotsAndDoesNothing) {
    RefuseASetting(*detector);
    for (int slot = firstOwnSlot; slot < firstOwnSlot + 5; ++slot) {
        EXPECT_EQ(Call<std::int32_t>(Controller(), slot), 0) << slot;
        EXPECT_EQ(Call<std::int32_t>(Controller(), slot, std::int64_t{-1}, host.Object()), 0) << slot;
    }
    EXPECT_EQ(detector->recognized, 0);
    EXPECT_EQ(detector->applied, 0);
    EXPECT_EQ(ErrorOf(*detector), Error(2816, "no such setting"));
}

// Destruction.

TEST_F(DetectorTables, DestroyInSlot3DestroysTheDetector) {
    int destroyed = 0;
    detector->wasDestroyed = &destroyed;
    void* const part = Primary();
    detector.release();
    Call<void>(part, 3);
    EXPECT_EQ(destroyed, 1);
}

TEST_F(DetectorTables, TheDestructorSlotOfEveryPartDestroysAndFreesTheWholeDetector) {
    for (int part = 0; part < 6; ++part) {
        int destroyed = 0;
        detector = MakeDetector(host);
        detector->wasDestroyed = &destroyed;
        void* const parts[] = {Primary(), Receiver(), SingleReceiver(), Adjuster(), ErrorInfo(), Controller()};
        detector.release();
        Call<void*>(parts[part], destructorSlot, 1u);  // checked by the leak and address sanitizers
        EXPECT_EQ(destroyed, 1) << part;
    }
}

TEST_F(DetectorTables, TheDestructorSlotWithoutTheFlagDestroysTheDetectorAndKeepsTheMemory) {
    for (int part = 0; part < 6; ++part) {
        int destroyed = 0;
        void* const memory = std::malloc(sizeof(TestDetector));  // the sanitizer detects a second free
        detector.reset(new (memory) TestDetector(host.Peer(), host.Object()));
        detector->wasDestroyed = &destroyed;
        void* const parts[] = {Primary(), Receiver(), SingleReceiver(), Adjuster(), ErrorInfo(), Controller()};
        detector.release();
        EXPECT_EQ(Call<void*>(parts[part], destructorSlot, 0u), memory) << part;
        EXPECT_EQ(destroyed, 1) << part;
        std::free(memory);
    }
}

// The first table, in slot order.

TEST_F(DetectorTables, Slots4To9ApplyLogNumberAndSize) {
    Call<void>(Primary(), 4);
    EXPECT_EQ(detector->applied, 1);

    Call<void, const std::string&, std::int32_t, std::int32_t>(Primary(), 5, "text", 4, 2);
    EXPECT_THAT(host.Log(), ElementsAre("2:[BaseDetectorImpl] [] text. Error = 4\n"));

    SettingsOf(*detector).SetStringValue("id", "31");
    EXPECT_EQ(Call<std::int32_t>(Primary(), 6), 31);
    SettingsOf(*detector).SetStringValue("id", "none");
    EXPECT_THROW(Call<std::int32_t>(Primary(), 6), std::invalid_argument);

    SettingsOf(*detector).SetBoolValue("use_half_cadr", true);
    EXPECT_EQ(Call<std::uint32_t>(Primary(), 7, 720u, 576u), 288u);
    EXPECT_EQ(detector->applied, 1);
    Call<void>(Primary(), 8, 640u, 480u);
    EXPECT_EQ(detector->applied, 2);
    EXPECT_EQ(detector->effectiveHeight, 240u);

    detector->transformer.Clear();
    Call<void>(Primary(), 9);
    EXPECT_EQ(detector->transformer.Steps().size(), 1u);
    EXPECT_EQ(detector->applied, 2);
}

TEST_F(DetectorTables, Slots10To12RecogniseReportHalfFramesAndProcess) {
    std::uint8_t pixels[4] = {};
    FrameImage frame(2, 2, 4, pixels);
    const FrameImage* seen = nullptr;
    detector->onRecognize = [&](FrameImage& image, BufferPointer) { seen = &image; };
    Call<void, FrameImage&, BufferPointer>(Primary(), 10, frame, BufferPointer());
    EXPECT_EQ(seen, &frame);
    detector->onRecognize = nullptr;

    EXPECT_FALSE(Call<bool>(Primary(), 11));
    SettingsOf(*detector).SetBoolValue("use_half_cadr", true);
    detector->SetFrameSize(640, 480);
    EXPECT_TRUE(Call<bool>(Primary(), 11));

    recording_host::RecordingFrameDone done;
    EXPECT_EQ(Call<std::int32_t>(Primary(), 12, MakeFrame(counts, 64, 48, 3), static_cast<OKM8::IContract*>(&done)), 0);
    EXPECT_EQ(done.buffers.size(), 1u);
    EXPECT_FALSE(detector->inSingleCall);
}

TEST_F(DetectorTables, Slots13To17AreThePrefixTheReportsAndTheFiguresKey) {
    SettingsOf(*detector).SetStringValue("name", "gate");
    SettingsOf(*detector).SetStringValue("id", "5");
    EXPECT_EQ(Call<std::string>(Primary(), 13), "[gate] [id:5] ");
    Call<void, std::int32_t, const std::string&>(Primary(), 14, 8, "by number");
    Call<void, const std::string&, const std::string&>(Primary(), 15, "gpu", "by text");
    EXPECT_TRUE(Call<bool>(Primary(), 16, "bad", std::int32_t{6}));
    EXPECT_FALSE(Call<bool>(Primary(), 16, "good", std::int32_t{0}));
    const std::string prefix = "[BaseDetectorImpl] [gate] [id:5] ";
    const std::string report = "Failed to initialize the engine: device:";
    EXPECT_THAT(host.Log(), ElementsAre("2:" + prefix + report + "8, info:by number. Error = 769\n",
                                        "2:" + prefix + report + "gpu, info:by text. Error = 769\n",
                                        "3:" + prefix + "bad. Error = 6\n"));
    EXPECT_EQ(Call<std::string>(Primary(), 17), "gate.5");
}

TEST_F(DetectorTables, Slots18To22ReadTextDoubleIntegerBooleanAndTextInPlace) {
    auto& values = detector_tests::SingleReceiverOf(*detector);
    values.SetStringValue("s", "text");
    values.SetDoubleValue("d", 2.5);
    values.SetIntValue("i", -6);
    values.SetBoolValue("b", true);
    std::string text;
    double real = 0;
    std::int32_t number = 0;
    bool boolean = false;
    const char* characters = nullptr;
    EXPECT_EQ((Call<std::int32_t, const char*, std::string&>(Primary(), 18, "s", text)), 0);
    EXPECT_EQ((Call<std::int32_t, const char*, double&>(Primary(), 19, "d", real)), 0);
    EXPECT_EQ((Call<std::int32_t, const char*, std::int32_t&>(Primary(), 20, "i", number)), 0);
    EXPECT_EQ((Call<std::int32_t, const char*, bool&>(Primary(), 21, "b", boolean)), 0);
    EXPECT_EQ((Call<std::int32_t, const char*, const char*&>(Primary(), 22, "s", characters)), 0);
    EXPECT_EQ(text, "text");
    EXPECT_EQ(real, 2.5);
    EXPECT_EQ(number, -6);
    EXPECT_TRUE(boolean);
    EXPECT_STREQ(characters, "text");
    EXPECT_EQ((Call<std::int32_t, const char*, double&>(Primary(), 19, "s", real)), 2816);
}

TEST_F(DetectorTables, Slots23And24BeginAndEndASingleCall) {
    const OKM8::FrameArea area = {1, 2, 3, 4};
    Call<void, const OKM8::FrameArea&>(Primary(), 23, area);
    EXPECT_TRUE(detector->inSingleCall);
    EXPECT_TRUE(detector->singleAreaActive);
    EXPECT_TRUE(detector->singleAreaValid);
    EXPECT_EQ(detector->singleArea.right, 4);
    EXPECT_EQ(detector->singleArea.bottom, 6);
    Call<void>(Primary(), 24);
    EXPECT_FALSE(detector->inSingleCall);
    EXPECT_FALSE(detector->singleAreaActive);
    EXPECT_TRUE(detector->singleAreaValid);
}

}  // namespace
