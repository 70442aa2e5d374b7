/// The real detector with its members public, and a fixture for its tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "diagnostics/debug_level.h"
#include "engine/vexlane_detector_impl.h"
#include "server/server_launcher.h"
#include "tests/support/fake_engine.h"
#include "tests/support/fake_processes.h"
#include "tests/support/recording_debug_output.h"
#include "tools/validate/recording_host.h"

namespace engine_tests {

class ProbeDetector final : public plate_recognition::VexlaneDetectorImpl {
  public:
    using VexlaneDetectorImpl::VexlaneDetectorImpl;
    OKM8_OBJECT_DESTRUCTOR_SLOT(ProbeDetector)

    using VexlaneDetectorImpl::area;
    using VexlaneDetectorImpl::effectiveHeight;
    using VexlaneDetectorImpl::frameCount;
    using VexlaneDetectorImpl::inSingleCall;
    using VexlaneDetectorImpl::nextPlateId;
    using VexlaneDetectorImpl::pendingResults;
    using VexlaneDetectorImpl::plateRangeMax;
    using VexlaneDetectorImpl::plateRangeMin;
    using VexlaneDetectorImpl::resultReady;
    using VexlaneDetectorImpl::resultRecCount;
    using VexlaneDetectorImpl::resultsMutex;
    using VexlaneDetectorImpl::resultWaitTime;
    using VexlaneDetectorImpl::singleAreaValid;
    using VexlaneDetectorImpl::tracker;
    using VexlaneDetectorImpl::trackerParameter;
    using VexlaneDetectorImpl::transformer;
    using VexlaneDetectorImpl::useArea;
    using VexlaneDetectorImpl::zoneWidth;
    using VexlaneDetectorImpl::zoneWidthMin;
};

struct DestroyDetector {
    void operator()(ProbeDetector* detector) const { detector->Destroy(); }
};
using DetectorPointer = std::unique_ptr<ProbeDetector, DestroyDetector>;

using Error = std::pair<std::int32_t, std::string>;

/// A plate as the fake engine finds it.
struct FoundPlate {
    std::string text = "AB123C";
    int left = 100;
    int top = 100;
    int right = 160;
    int bottom = 120;
    double confidenceSum = 540.0;
};

class EngineTest : public testing::Test {
  protected:
    EngineTest() {
        fake_engine::Reset();
        fake_processes::Reset();
    }

    ~EngineTest() override {
        End();
        diagnostics::SetDebugLevel(0);
        EXPECT_EQ(counts.released, counts.made);
    }

    ProbeDetector& Detector() {
        if (!detector) {
            detector.reset(new ProbeDetector(host.Peer(), host.Object()));
        }
        return *detector;
    }

    void End() {
        fake_engine::OnRecognize(nullptr);
        detector.reset();
    }

    OKM8::IAsyncAdjuster& Settings() { return Detector(); }
    Error ErrorState() {
        OKM8::IErrorInfoProvider& errors = Detector();
        return {errors.GetErrorCode(), errors.GetErrorMessage()};
    }

    /// Plays one grey frame; returns the call's code.
    std::int32_t Frame(std::uint64_t time, std::uint32_t width = 640, std::uint32_t height = 480) {
        OKM8::Analytics::IMediaReceiver& receiver = Detector();
        return receiver.Receive(recording_host::MakeFrame(counts, width, height, time));
    }

    std::int32_t SingleFrame(std::uint64_t time, const OKM8::FrameArea& frameArea, std::uint32_t width = 640,
                             std::uint32_t height = 480) {
        OKM8::Analytics::IMediaReceiverSingle2& receiver = Detector();
        return receiver.ReceiveSingle(recording_host::MakeFrame(counts, width, height, time), &frameArea, nullptr);
    }

    /// Sets what the engine finds in every frame from now on.
    static void Find(const std::vector<RPLATE>& found) {
        fake_engine::OnRecognize([found](const IMG&, RPLATE* plates) {
            std::copy(found.begin(), found.end(), plates);
            return static_cast<int>(found.size());
        });
    }
    static void Find(const FoundPlate& plate) { Find(std::vector<RPLATE>{RecordOf(plate)}); }
    static void FindNothing() { Find(std::vector<RPLATE>{}); }

    static RPLATE RecordOf(const FoundPlate& plate) {
        return fake_engine::Plate(plate.text, plate.confidenceSum, plate.left, plate.top, plate.right, plate.bottom);
    }

    /// Makes the tracker report every track with its first reading.
    void ReportAtOnce() {
        Settings().SetBoolValue("result_ready", true);
        Settings().SetIntValue("result_rec_count", 1);
        Settings().SetIntValue("result_wait_time", 1000000);
    }

    /// The trace lines except the launcher's, whose poll thread writes at any time; line numbers are replaced with
    /// LINE.
    std::vector<std::string> Trace() const {
        std::vector<std::string> lines;
        for (const std::string& text : output.Texts()) {
            if (!text.starts_with("ServerLauncher: ")) {
                lines.push_back(std::regex_replace(text, std::regex(R"(^(vexlane\[[^(]*)\([0-9]+\): )"), "$1(LINE): "));
            }
        }
        return lines;
    }

    static std::string LineOf(const std::string& operation, const std::string& message) {
        return "vexlane[plate_recognition::VexlaneDetectorImpl::" + operation + "(LINE): " + message;
    }

    recording_host::BufferCounts counts;
    recording_host::RecordingHost host;
    RecordingDebugOutput output;
    DetectorPointer detector;
};

}  // namespace engine_tests
