// Exceptions of the engine: none leaves the loaded library. Those of the host are cases of "plate-host validate".

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <thread>
#include <tuple>

#include "sdk/contract_names.h"
#include "tests/plugin/plugin.h"
#include "tests/plugin/throwing_engine.h"
#include "tests/support/servers.h"
#include "tools/validate/recording_host.h"
#include "tools/validate/system.h"

namespace {

using namespace plugin_test;
using validate::SetEnvironment;
namespace ContractName = OKM8::ContractName;

// Whether the exception is derived from std::exception.
enum class Kind { Standard, Other };

void PrintTo(Kind kind, std::ostream* stream) {
    *stream << (kind == Kind::Standard ? "standard" : "other");
}

class ThrowingEngine : public testing::TestWithParam<std::tuple<std::string, Kind>> {
  protected:
    ThrowingEngine() : plugin(servers::OwnFolder() / VEXLANE_THROWING_ENGINE) {
        servers::Remove();
        folder.SetDebugLevel("1");
        plugin.InitializeModule(host.Object());
        detector = plugin.GetModule()->CreateDetector(nullptr, host.Peer());
        errors = static_cast<OKM8::IErrorInfoProvider*>(detector->QueryContract(ContractName::IErrorInfoProvider));
    }
    ~ThrowingEngine() override {
        Behave();
        detector->Destroy();
        plugin.FinalizeModule();
        EXPECT_EQ(buffers.released, buffers.made);
    }

    void Behave() {
        SetEnvironment(throwing_engine::functionVariable, "");
        SetEnvironment(throwing_engine::otherVariable, "");
    }

    std::int32_t Receive() {
        auto* const receiver = static_cast<OKM8::Analytics::IMediaReceiverSingle2*>(
            detector->QueryContract(ContractName::IMediaReceiverSingle2));
        return receiver->ReceiveSingle(recording_host::MakeFrame(buffers, 64, 48, nextTime += 40), nullptr, &frameDone);
    }

    // The last trace line of a function of the detector.
    std::string LastMessageOf(const std::string& function) const {
        const std::string text = lines.Text();
        const std::size_t start = text.rfind("vexlane[plate_recognition::VexlaneDetectorImpl::" + function + "(");
        if (start == std::string::npos) {
            return "no line";
        }
        const std::size_t message = text.find("): ", start) + 3;
        return text.substr(message, text.find('\n', message) - message);
    }

    TestFolder folder;
    DebugLines lines;
    recording_host::RecordingHost host;
    recording_host::BufferCounts buffers;
    recording_host::RecordingFrameDone frameDone;
    Plugin plugin;
    OKM8::Analytics::IDetector* detector = nullptr;
    OKM8::IErrorInfoProvider* errors = nullptr;
    std::uint64_t nextTime = 0;
};

TEST_P(ThrowingEngine, IsATraceLineAndTheFrameSucceeds) {
    EXPECT_EQ(Receive(), 0);
    EXPECT_EQ(LastMessageOf("Recognize"), "Frame count: 1 Iteration : 0 NumberOfPlate is 0");
    const auto& [function, kind] = GetParam();
    SetEnvironment(throwing_engine::functionVariable, function);
    SetEnvironment(throwing_engine::otherVariable, kind == Kind::Other ? "1" : "");
    EXPECT_EQ(Receive(), 0);
    EXPECT_EQ(errors->GetErrorCode(), 0);
    EXPECT_STREQ(errors->GetErrorMessage(), "");
    EXPECT_EQ(LastMessageOf("Recognize"), kind == Kind::Standard ? throwing_engine::thrownText : "Exception");
    EXPECT_EQ(frameDone.buffers.size(), 2u);
    Behave();
    std::int32_t code = -1;
    std::thread([&] { code = Receive(); }).join();
    EXPECT_EQ(code, 0);
    EXPECT_EQ(LastMessageOf("Recognize"), "Frame count: 3 Iteration : 0 NumberOfPlate is 0");
}

INSTANTIATE_TEST_SUITE_P(At, ThrowingEngine,
                         testing::Combine(testing::Values(std::string(throwing_engine::recognize),
                                                          std::string(throwing_engine::setRange)),
                                          testing::Values(Kind::Standard, Kind::Other)),
                         [](const auto& instance) {
                             return std::string(std::get<0>(instance.param)) + "With" +
                                    (std::get<1>(instance.param) == Kind::Standard ? "AStandardException"
                                                                                   : "AnyOtherException");
                         });

}  // namespace
