// Detectors of the loaded library and the server that they share.

#include <thread>

#include "tests/plugin/plugin_fixture.h"
#include "tools/validate/session.h"

namespace {

using namespace plugin_test;
using OKM8::Analytics::IDetector;
using recording_host::MakeFrame;
namespace ContractName = OKM8::ContractName;

class Detector : public PluginFixture {};

TEST_F(Detector, IsDestroyedByItsOwnSlotAndEndsTheServer) {
    Initialize();
    IDetector* const detector = CreateDetector();
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

    static std::string Script() {
        std::vector<validate::ScriptedFrame> frames;
        for (int frame = 0; frame < 5; ++frame) {
            frames.push_back({{.text = "AB123C", .x = 100 + 10 * frame, .y = 100}});
        }
        frames.resize(frames.size() + 2);
        for (int frame = 0; frame < 5; ++frame) {
            frames.push_back({{.text = "XYZ7890", .x = 400, .y = 300 + 10 * frame, .confidence = 700}});
        }
        return validate::ScriptOf(frames);
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
