// A detector of the loaded library, called through the slots of its six interfaces.

#include <sstream>
#include <thread>

#include "sdk/plate_events.h"
#include "tests/plugin/plugin_fixture.h"

namespace {

using namespace plugin_test;
using OKM8::Analytics::IDetector;
using recording_host::MakeFrame;
using testing::ElementsAre;
namespace ContractName = OKM8::ContractName;

constexpr std::int32_t refused = 2816;

struct Detector : PluginFixture {
    Detector() {
        Initialize();
        detector = CreateDetector();
        for (const auto& [name, face] :
             std::vector<std::pair<const char*, void**>>{{ContractName::IMediaReceiver, &receiver},
                                                         {ContractName::IMediaReceiverSingle2, &single},
                                                         {ContractName::IAsyncAdjuster, &adjuster},
                                                         {ContractName::IErrorInfoProvider, &errors},
                                                         {ContractName::IMediaReceiverController, &controller}}) {
            *face = CallSlot<void*, const char*>(detector, 0, name);
        }
    }

    std::int32_t Receive(OKM8::MFF::IMultimediaBuffer* buffer) {
        return CallSlot<std::int32_t, void*>(receiver, 3, buffer);
    }
    std::int32_t ErrorCode() { return CallSlot<std::int32_t>(errors, 3); }
    std::string ErrorText() { return CallSlot<const char*>(errors, 4); }

    IDetector* detector = nullptr;
    void* receiver = nullptr;
    void* single = nullptr;
    void* adjuster = nullptr;
    void* errors = nullptr;
    void* controller = nullptr;
};

TEST_F(Detector, ReturnsThePartOfEachNameFromEveryPartAndBothSlots) {
    const std::vector<std::pair<const char*, void*>> parts = {
        {"struct OKM8::IContract", detector},
        {"struct OKM8::IDestroyable", detector},
        {"struct OKM8::Analytics::IDetector", detector},
        {"struct OKM8::Analytics::IMediaReceiver", receiver},
        {"struct OKM8::Analytics::IMediaReceiverSingle", single},
        {"struct OKM8::Analytics::IMediaReceiverSingle2", single},
        {"struct OKM8::IAsyncAdjuster", adjuster},
        {"struct OKM8::IErrorInfoProvider", errors},
        {"struct OKM8::Analytics::IMediaReceiverController", controller}};
    for (void* const object : {static_cast<void*>(detector), receiver, single, adjuster, errors, controller}) {
        ASSERT_NE(object, nullptr);
        for (const std::size_t slot : {0u, 1u}) {
            for (const auto& [name, part] : parts) {
                EXPECT_EQ((CallSlot<void*, const char*>(object, slot, name)), part) << slot << " " << name;
            }
            for (const char* name : {"struct OKM8::Analytics::IModule", "struct OKM8::PLUGIN::IPluginModule",
                                     "struct OKM8::ILogger", "", "struct OKM8::IAsyncAdjuster ", "OKM8::IAsyncAdjuster",
                                     "struct OKM8::iasyncadjuster", "struct OKM8::Analytics::IMediaReceiverSingle3"}) {
                EXPECT_EQ((CallSlot<void*, const char*>(object, slot, name)), nullptr) << slot << " " << name;
            }
            EXPECT_EQ((CallSlot<void*, const char*>(object, slot, nullptr)), nullptr);
        }
    }
}

TEST_F(Detector, HasSixSeparateParts) {
    std::vector<void*> parts = {detector, receiver, single, adjuster, errors, controller};
    // The first base is at the start, the others follow in their order.
    EXPECT_TRUE(std::is_sorted(parts.begin(), parts.end()));
    EXPECT_EQ(std::adjacent_find(parts.begin(), parts.end()), parts.end());
}

TEST_F(Detector, ReturnsZeroFromEveryControl) {
    for (std::size_t slot = 3; slot < 8; ++slot) {
        EXPECT_EQ((CallSlot<std::int32_t>(controller, slot)), 0);
        EXPECT_EQ((CallSlot<std::int32_t, void*, std::int64_t, double>(controller, slot, nullptr, -1, 1.5)), 0);
    }
    EXPECT_EQ(ErrorCode(), 0);
}

TEST_F(Detector, AcceptsSettingsOfTheRightTypeAndRefusesAllOthersByName) {
    const auto setString = [&](const char* name, const char* value) {
        return CallSlot<std::int32_t, const char*, const char*>(adjuster, 3, name, value);
    };
    const auto setDouble = [&](const char* name, double value) {
        return CallSlot<std::int32_t, const char*, double>(adjuster, 4, name, value);
    };
    const auto setInt = [&](const char* name, std::int32_t value) {
        return CallSlot<std::int32_t, const char*, std::int32_t>(adjuster, 5, name, value);
    };
    const auto setBool = [&](const char* name, bool value) {
        return CallSlot<std::int32_t, const char*, bool>(adjuster, 6, name, value);
    };
    EXPECT_EQ(setInt("no_such_setting", 1), refused);
    EXPECT_EQ(ErrorCode(), refused);
    EXPECT_EQ(ErrorText(), "no_such_setting");

    EXPECT_EQ(setString("id", "12"), 0);
    EXPECT_EQ(ErrorCode(), 0);
    EXPECT_EQ(ErrorText(), "");
    EXPECT_EQ(setString("name", nullptr), 0);
    for (const char* name : {"zone_width", "zone_width_min", "result_wait_time", "result_rec_count", "area_left",
                             "area_top", "area_right", "area_bottom"}) {
        EXPECT_EQ(setInt(name, 1), 0) << name;
        EXPECT_EQ(setBool(name, true), refused) << name;
        EXPECT_EQ(ErrorText(), name);
    }
    for (const char* name : {"result_ready", "use_area", "use_half_cadr"}) {
        EXPECT_EQ(setBool(name, false), 0) << name;
        EXPECT_EQ(setInt(name, 1), refused) << name;
        EXPECT_EQ(setString(name, "true"), refused) << name;
    }
    EXPECT_EQ(setDouble("zone_width", 1.0), refused);
    EXPECT_EQ(setInt("Zone_Width", 1), refused);
    EXPECT_EQ(setInt(nullptr, 1), refused);
    EXPECT_EQ(ErrorCode(), refused);
    EXPECT_EQ(ErrorText(), "");
}

TEST_F(Detector, AcceptsValuesOfASingleCallUnderAnyName) {
    EXPECT_EQ((CallSlot<std::int32_t, const char*, const char*>(single, 4, "anything", "text")), 0);
    EXPECT_EQ((CallSlot<std::int32_t, const char*, double>(single, 5, "anything", 0.5)), 0);
    EXPECT_EQ((CallSlot<std::int32_t, const char*, std::int32_t>(single, 6, "anything", 7)), 0);
    EXPECT_EQ((CallSlot<std::int32_t, const char*, bool>(single, 7, "anything", true)), 0);
    EXPECT_EQ((CallSlot<std::int32_t, const char*, bool>(single, 7, nullptr, true)), refused);
}

TEST_F(Detector, HandlesFramesAndReleasesEveryBuffer) {
    for (std::uint64_t time = 0; time < 5; ++time) {
        EXPECT_EQ(Receive(MakeFrame(buffers, 64, 48, time)), 0) << ErrorText();
    }
    EXPECT_EQ(buffers.made, 5);
    EXPECT_EQ(buffers.released, 5);
}

TEST_F(Detector, ReturnsOneAndAnErrorTextForAnInvalidFrame) {
    recording_host::BufferOptions options;
    options.pixels.assign(100, 0);
    EXPECT_EQ(Receive(recording_host::MakeBuffer(buffers, options)), 1);
    EXPECT_EQ(ErrorCode(), 1);
    EXPECT_EQ(ErrorText(), "Wrong image format");
    options.width = 0;
    EXPECT_EQ(Receive(recording_host::MakeBuffer(buffers, options)), 1);
    EXPECT_EQ(ErrorText(), "Zero image size is not acceptable");
    EXPECT_EQ(buffers.released, 2);
    EXPECT_EQ(Receive(MakeFrame(buffers, 64, 48, 0)), 0);
    EXPECT_EQ(ErrorCode(), 0);
    EXPECT_EQ(ErrorText(), "");
}

TEST_F(Detector, ReportsASingleFrameAsDone) {
    recording_host::RecordingFrameDone done;
    const OKM8::FrameArea area = {10, 10, 50, 50};
    OKM8::MFF::IMultimediaBuffer* const buffer = MakeFrame(buffers, 64, 48, 1);
    EXPECT_EQ((CallSlot<std::int32_t, void*, const void*, void*>(single, 3, buffer, &area,
                                                                 static_cast<OKM8::IContract*>(&done))),
              0);
    EXPECT_THAT(done.buffers, ElementsAre(buffer));
    EXPECT_EQ(
        (CallSlot<std::int32_t, void*, const void*, void*>(single, 3, MakeFrame(buffers, 64, 48, 2), nullptr, nullptr)),
        0);
    EXPECT_EQ(buffers.released, 2);
}

TEST_F(Detector, AppliesSettingsByTheLastSlotOfItsAdjuster) {
    CallSlot<void>(adjuster, 7);
    EXPECT_EQ(ErrorCode(), 0);
    EXPECT_EQ(Receive(MakeFrame(buffers, 64, 48, 0)), 0);
}

TEST_F(Detector, IsDestroyedByItsOwnSlotAndEndsTheServer) {
    ASSERT_TRUE(WaitUntil([] { return servers::Running().size() == 1; }));
    std::erase(detectors, detector);
    CallSlot<void>(detector, 3);
    EXPECT_THAT(servers::Running(), testing::IsEmpty());
}

// A script with two vehicles, one after the other.
class TwoVehicles : public PluginFixture {
  protected:
    static constexpr int framePeriod = 40;  // milliseconds
    static constexpr int startTime = 1000;

    static std::string Plate(const std::string& text, int confidence, int x, int y) {
        std::ostringstream json;
        json << R"({"plates":[{"text":")" << text << R"(","confidence":)" << confidence << R"(,"corners":[[)" << x
             << ',' << y << "],[" << x << ',' << y + 30 << "],[" << x + 120 << ',' << y << "],[" << x + 120 << ','
             << y + 30 << "]]}]}";
        return json.str();
    }

    static std::string Script() {
        std::ostringstream json;
        json << R"({"frames":[)";
        for (int frame = 0; frame < 5; ++frame) {
            json << Plate("AB123C", 540, 100 + 10 * frame, 100) << ',';
        }
        json << "{},{},";
        for (int frame = 0; frame < 5; ++frame) {
            json << Plate("XYZ7890", 700, 400, 300 + 10 * frame) << ',';
        }
        json << "{}]}";
        return json.str();
    }

    IDetector* Prepare() {
        folder.SetScript(Script());
        Initialize();
        IDetector* const detector = CreateDetector();
        auto* const adjuster = Query<OKM8::IAsyncAdjuster>(detector, ContractName::IAsyncAdjuster);
        EXPECT_EQ(adjuster->SetIntValue("zone_width", 100), 0);
        EXPECT_EQ(adjuster->SetIntValue("zone_width_min", 0), 0);
        EXPECT_EQ(adjuster->SetBoolValue("result_ready", true), 0);
        EXPECT_EQ(adjuster->SetIntValue("result_wait_time", 1000), 0);
        EXPECT_EQ(adjuster->SetIntValue("result_rec_count", 3), 0);
        adjuster->ApplySettings();
        return detector;
    }

    void Run(IDetector* detector) {
        auto* const receiver = Query<OKM8::Analytics::IMediaReceiver>(detector, ContractName::IMediaReceiver);
        for (int frame = 0; frame < 13; ++frame) {
            const auto time = static_cast<std::uint64_t>(startTime + framePeriod * frame);
            EXPECT_EQ(receiver->Receive(MakeFrame(buffers, 640, 480, time)), 0) << frame;
        }
    }
};

void ExpectNumber(const recording_host::RecordedTarget& target, const char* key, std::int64_t number) {
    const recording_host::SetValue* const value = target.Find(key);
    ASSERT_NE(value, nullptr) << key;
    EXPECT_EQ(value->setter, 'i') << key;
    EXPECT_EQ(value->number, number) << key;
}

void ExpectText(const recording_host::RecordedTarget& target, const char* key, const std::string& text) {
    const recording_host::SetValue* const value = target.Find(key);
    ASSERT_NE(value, nullptr) << key;
    EXPECT_EQ(value->setter, 's') << key;
    EXPECT_EQ(value->text, text) << key;
}

TEST_F(TwoVehicles, RaiseOneEventEach) {
    IDetector* const detector = Prepare();
    Run(detector);
    const auto events = host.Events();
    ASSERT_EQ(events.size(), 2u);
    for (const auto& event : events) {
        EXPECT_EQ(event.detector, detector);
        EXPECT_EQ(event.name, "event");
        EXPECT_EQ(event.kind, 3);
        EXPECT_EQ(event.raised, 1);
        EXPECT_EQ(event.discarded, 0);
        EXPECT_THAT(event.objectKeys, ElementsAre("targets"));
        ASSERT_EQ(event.targets.size(), 1u);
        ExpectNumber(event.targets.front(), "direction", 0);
        ExpectText(event.targets.front(), "country_code", "");
        EXPECT_EQ(event.targets.front().Find("area_left"), nullptr);
    }

    const auto& first = events[0].targets.front();
    EXPECT_EQ(events[0].timeMs, startTime);
    EXPECT_EQ(events[0].targetsTimeMs, startTime);
    ExpectText(first, "lp_wnum", "AB123C");
    ExpectNumber(first, "char_num", 6);
    ExpectNumber(first, "confidence", 90);
    ExpectNumber(first, "lpf_x1", 100);
    ExpectNumber(first, "lpf_y1", 100);
    ExpectNumber(first, "lpf_x3", 220);
    ExpectNumber(first, "lpf_y3", 130);
    ASSERT_EQ(first.track.size(), 3u);
    for (int point = 0; point < 3; ++point) {
        const OKM8::Analytics::TrackPoint& reading = first.track[static_cast<std::size_t>(point)];
        EXPECT_EQ(reading.x, 100 + 10 * point);
        EXPECT_EQ(reading.y, 100);
        EXPECT_EQ(reading.width, 0);
        EXPECT_EQ(reading.height, 30);
        EXPECT_EQ(reading.time, OKM8::Analytics::TrackTimeEpoch + INT64_C(1000) * (startTime + framePeriod * point));
        EXPECT_EQ(reading.flag, 0);
    }

    const auto& second = events[1].targets.front();
    EXPECT_EQ(events[1].timeMs, startTime + framePeriod * 7);
    ExpectText(second, "lp_wnum", "XYZ7890");
    ExpectNumber(second, "char_num", 7);
    ExpectNumber(second, "confidence", 100);
    ExpectNumber(second, "lpf_x1", 400);
    ExpectNumber(second, "lpf_y1", 300);
    EXPECT_EQ(second.track.size(), 3u);
}

TEST_F(TwoVehicles, ReleaseEveryBufferOnDestruction) {
    IDetector* const detector = Prepare();
    Run(detector);
    EXPECT_EQ(buffers.made, 13);
    EXPECT_LT(buffers.released, 13) << "pending readings keep their frames";
    Destroy(detector);
    EXPECT_EQ(buffers.released, 13);
    EXPECT_EQ(host.Events().size(), 2u) << "destruction raises nothing";
}

TEST_F(TwoVehicles, WriteTraceLinesAtALevelAboveZero) {
    folder.SetDebugLevel("1");
    const DebugLines lines;
    IDetector* const detector = Prepare();
    Run(detector);
    Destroy(detector);
    const std::string text = lines.Text();
    const std::string detectorName = "plate_recognition::VexlaneDetectorImpl::";
    for (const std::string& line :
         {std::string("): Create vexlane detector\n"), std::string("ServerLauncher: Restart server launcher\n"),
          std::string("ServerLauncher: Start server launcher\n"), std::string("ServerLauncher: Stop server launcher\n"),
          std::string("ServerLauncher: Terminated server launcher\n"),
          "vexlane[" + detectorName + "VexlaneDetectorImpl(", "vexlane[" + detectorName + "Recognize(",
          std::string("): Frame count: 1 Iteration : 0 NumberOfPlate is 1\n"),
          std::string("): Frame count: 6 Iteration : 0 NumberOfPlate is 0\n"),
          std::string("): Create result: Plate = AB123C Rect = {100, 100, 220, 130} IsFinished = 0 Id = 0\n"),
          "vexlane[" + detectorName + "OnResult(", std::string("): Send plate ID = 0 Tracks: 3\n"),
          "vexlane[" + detectorName + "OnMayReleaseLicencePlate(", std::string("): Remove plate ID = 0, still left = "),
          std::string("): Send plate ID = 5 Tracks: 3\n")}) {
        EXPECT_NE(text.find(line), std::string::npos) << line << "\n" << text;
    }
    EXPECT_EQ(text.find("Set plate range"), std::string::npos);
}

TEST_F(TwoVehicles, WriteNoTraceLinesAtLevelZero) {
    const DebugLines lines;
    IDetector* const detector = Prepare();
    Run(detector);
    Destroy(detector);
    EXPECT_EQ(lines.Text(), "");
    EXPECT_EQ(host.Events().size(), 2u);
}

// Several detectors share one server

class TwoDetectors : public PluginFixture {};

TEST_F(TwoDetectors, ShareAServerThatTheFirstDestructionEndsAndARefusedRangeRestarts) {
    folder.SetScript(R"({"refused_ranges":[1]})");
    Initialize();
    IDetector* const first = CreateDetector();
    IDetector* const second = CreateDetector();
    auto* const receiver = Query<OKM8::Analytics::IMediaReceiver>(second, ContractName::IMediaReceiver);
    ASSERT_TRUE(WaitUntil([] { return servers::Running().size() == 1; }));
    Destroy(first);
    EXPECT_THAT(servers::Running(), testing::IsEmpty());
    EXPECT_EQ(receiver->Receive(MakeFrame(buffers, 64, 48, 0)), 0);
    EXPECT_THAT(servers::Running(), testing::IsEmpty()) << "an accepted range restarts nothing";
    EXPECT_EQ(receiver->Receive(MakeFrame(buffers, 64, 48, 1)), 0);
    EXPECT_EQ(servers::Running().size(), 1u);
}

TEST_F(TwoDetectors, RestartTheServerForTheSecond) {
    Initialize();
    CreateDetector();
    ASSERT_TRUE(WaitUntil([] { return servers::Running().size() == 1; }));
    const auto before = servers::Running();
    CreateDetector();
    ASSERT_TRUE(WaitUntil([] { return servers::Running().size() == 1; }));
    EXPECT_NE(servers::Running(), before);
}

TEST_F(TwoDetectors, ReceiveFramesAndSettingsOnManyThreadsWhileTheServerIsRestarted) {
    constexpr int frameCount = 60;
    folder.SetScript(R"({"refused_ranges":[5,20,21,40,80],"repeat":true,"frames":[{"plates":[{"text":"AB123C",)"
                     R"("confidence":540,"corners":[[10,10],[10,20],[40,10],[40,20]]}]},{}]})");
    servers::Remove();  // polling continues
    Initialize();
    std::vector<IDetector*> both = {CreateDetector(), CreateDetector()};
    servers::Place(VEXLANE_SERVER_PROGRAM);
    std::atomic<bool> framesDone = false;
    std::vector<std::thread> threads;
    for (IDetector* const detector : both) {
        auto* const receiver = Query<OKM8::Analytics::IMediaReceiver>(detector, ContractName::IMediaReceiver);
        threads.emplace_back([this, receiver] {
            for (int frame = 0; frame < frameCount; ++frame) {
                EXPECT_EQ(receiver->Receive(MakeFrame(buffers, 64, 48, static_cast<std::uint64_t>(frame) * 40)), 0);
            }
        });
    }
    std::thread settings([&] {
        while (!framesDone) {
            for (IDetector* const detector : both) {
                auto* const adjuster = Query<OKM8::IAsyncAdjuster>(detector, ContractName::IAsyncAdjuster);
                auto* const errors = Query<OKM8::IErrorInfoProvider>(detector, ContractName::IErrorInfoProvider);
                adjuster->SetStringValue("name", "a name that is longer than a short text");
                adjuster->SetIntValue("zone_width", 50);
                adjuster->SetBoolValue("use_area", true);
                adjuster->ApplySettings();
                errors->GetErrorCode();
            }
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    framesDone = true;
    settings.join();
    EXPECT_EQ(buffers.made, 2 * frameCount);
    Destroy(both[0]);
    Destroy(both[1]);
    EXPECT_EQ(buffers.released, 2 * frameCount);
    EXPECT_THAT(servers::Running(), testing::IsEmpty());
}

}  // namespace
