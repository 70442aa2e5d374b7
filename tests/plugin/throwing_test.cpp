// Exceptions of the host and of the engine: none leaves the loaded library, except those of CreateDetector. Also the
// calls that every operation of the host may make.

#include <gmock/gmock.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "sdk/contract_names.h"
#include "tests/plugin/plugin.h"
#include "tests/plugin/throwing_engine.h"
#include "tests/support/servers.h"
#include "tools/validate/recording_host.h"
#include "tools/validate/system.h"

namespace {

using namespace plugin_test;
using OKM8::Analytics::IDetector;
using recording_host::HostCall;
using recording_host::Operation;
using validate::SetEnvironment;
namespace ContractName = OKM8::ContractName;

constexpr char thrownText[] = "the host has failed";

// An exception that is not derived from std::exception.
struct OtherException {};

enum class Kind { Standard, Other };

void PrintTo(Kind kind, std::ostream* stream) {
    *stream << (kind == Kind::Standard ? "standard" : "other");
}

std::string NameOf(Kind kind) {
    return kind == Kind::Standard ? "AStandardException" : "AnyOtherException";
}

// A script with another vehicle in every frame, so that every frame has its own event.
std::string Script() {
    std::ostringstream json;
    json << R"({"frames":[)";
    for (int frame = 0; frame < 8; ++frame) {
        const int x = frame % 4 * 14;
        const int y = frame / 4 * 24;
        json << (frame == 0 ? "" : ",") << R"({"plates":[{"text":")" << std::string(16, static_cast<char>('A' + frame))
             << R"(","confidence":540,"corners":[[)" << x << ',' << y << "],[" << x << ',' << y + 5 << "],[" << x + 9
             << ',' << y << "],[" << x + 9 << ',' << y + 5 << "]]}]}";
    }
    json << "]}";
    return json.str();
}

class Throwing : public testing::Test {
  protected:
    Throwing() {
        servers::Remove();
        folder.SetScript(Script());
        folder.SetDebugLevel("1");
        host.refusals.logger = true;
        host.onCall = buffers.onCall = frameDone.onCall = [this](const HostCall& call) { HandleCall(call.operation); };
    }
    ~Throwing() override {
        throwing.clear();
        if (detector != nullptr) {
            detector->Destroy();
        }
        if (plugin) {
            plugin->FinalizeModule();
        }
        plugin.reset();
    }

    void Load(std::unique_ptr<Plugin> loaded) {
        plugin = std::move(loaded);
        ASSERT_EQ(plugin->InitializeModule(host.Object()), 0);
    }

    // A detector that reports every plate at once, or none.
    void Prepare(bool reportsAtOnce = true) {
        detector = plugin->GetModule()->CreateDetector(nullptr, host.Peer());
        ASSERT_NE(detector, nullptr);
        errors = static_cast<OKM8::IErrorInfoProvider*>(detector->QueryContract(ContractName::IErrorInfoProvider));
        auto* const adjuster =
            static_cast<OKM8::IAsyncAdjuster*>(detector->QueryContract(ContractName::IAsyncAdjuster));
        adjuster->SetBoolValue("result_ready", reportsAtOnce);
        adjuster->SetIntValue("result_rec_count", 1);
        adjuster->SetIntValue("result_wait_time", 1000);
        adjuster->ApplySettings();
    }

    std::int32_t Receive(OKM8::MFF::IMultimediaBuffer* buffer) {
        auto* const receiver = static_cast<OKM8::Analytics::IMediaReceiverSingle2*>(
            detector->QueryContract(ContractName::IMediaReceiverSingle2));
        return receiver->ReceiveSingle(buffer, nullptr, &frameDone);
    }
    std::int32_t Receive() { return Receive(recording_host::MakeFrame(buffers, 64, 48, nextTime += 40)); }

    // After a failure the next frame succeeds, on another thread too, because no lock is still held.
    void ExpectRecovery() {
        throwing.clear();
        const int raised = Count(Operation::Raise);
        std::int32_t code = -1;
        std::thread([&] { code = Receive(); }).join();
        EXPECT_EQ(code, 0) << errors->GetErrorMessage();
        EXPECT_EQ(errors->GetErrorCode(), 0);
        EXPECT_STREQ(errors->GetErrorMessage(), "");
        EXPECT_GT(Count(Operation::Raise), raised);
    }

    void ExpectAllBuffersReleased() {
        detector->Destroy();
        detector = nullptr;
        EXPECT_EQ(Count(Operation::Release), buffers.made);
    }

    // Called by every operation of the host after its work.
    void HandleCall(Operation operation) {
        ++counts[operation];
        if (onOperation) {
            onOperation(operation);
        }
        if (!throwing.contains(operation)) {
            return;
        }
        if (throwsOther) {
            throw OtherException();
        }
        throw std::runtime_error(thrownText);
    }

    int Count(Operation operation) const {
        const auto found = counts.find(operation);
        return found == counts.end() ? 0 : found->second;
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
    std::set<Operation> throwing;  // after their work
    bool throwsOther = false;      // an OtherException instead of a std::runtime_error
    std::function<void(Operation)> onOperation;
    std::map<Operation, int> counts;
    std::unique_ptr<Plugin> plugin;
    IDetector* detector = nullptr;
    OKM8::IErrorInfoProvider* errors = nullptr;
    std::uint64_t nextTime = 0;
};

// Exceptions that leave the library.

class ThrowingConstruction : public Throwing, public testing::WithParamInterface<Kind> {};

TEST_P(ThrowingConstruction, ReachesTheHostAndTheNextDetectorIsCreated) {
    Load(std::make_unique<Plugin>());
    throwing = {Operation::GetLogger};
    throwsOther = GetParam() == Kind::Other;
    OKM8::Analytics::IModule* const module = plugin->GetModule();
    if (GetParam() == Kind::Other) {
        EXPECT_THROW(module->CreateDetector(nullptr, host.Peer()), OtherException);
    } else {
        EXPECT_THAT([&] { module->CreateDetector(nullptr, host.Peer()); },
                    testing::ThrowsMessage<std::runtime_error>(thrownText));
    }
    throwing.clear();
    Prepare();
    ExpectRecovery();
    ExpectAllBuffersReleased();
}

INSTANTIATE_TEST_SUITE_P(Of, ThrowingConstruction, testing::Values(Kind::Standard, Kind::Other),
                         [](const auto& instance) { return NameOf(instance.param); });

// Exceptions that are the frame's error: it is in the error state, and the frame is dropped.

struct CallCase {
    const char* name;
    std::set<Operation> throwing;
    Operation requiredCall;  // the operation that must have been called for the case to be valid
    int discarded = 0;       // of the one raiser that was created
    int raised = 0;
    bool refusesArguments = false;
    int done = 0;  // calls of OnFrameDone
};

void PrintTo(const CallCase& testCase, std::ostream* stream) {
    *stream << testCase.name;
}

std::string NameOfCase(const testing::TestParamInfo<std::tuple<CallCase, Kind>>& instance) {
    return std::string(std::get<0>(instance.param).name) + "With" + NameOf(std::get<1>(instance.param));
}

class ThrowingCase : public Throwing, public testing::WithParamInterface<std::tuple<CallCase, Kind>> {
  protected:
    ThrowingCase() : testCase(std::get<0>(GetParam())), kind(std::get<1>(GetParam())) {
        Load(std::make_unique<Plugin>());
        Prepare();
        throwing = testCase.throwing;
        throwsOther = kind == Kind::Other;
        host.refusals.arguments = testCase.refusesArguments;
    }

    CallCase testCase;
    Kind kind;
};

class ThrowingBuffer : public ThrowingCase {};

TEST_P(ThrowingBuffer, IsTheFramesError) {
    EXPECT_EQ(Receive(), 1);
    EXPECT_GT(Count(testCase.requiredCall), 0);
    EXPECT_EQ(errors->GetErrorCode(), 1);
    EXPECT_STREQ(errors->GetErrorMessage(), kind == Kind::Standard ? thrownText : "Image processing exception");
    EXPECT_EQ(Count(Operation::OnFrameDone), testCase.done);
    ExpectRecovery();
    ExpectAllBuffersReleased();
}

INSTANTIATE_TEST_SUITE_P(
    At, ThrowingBuffer,
    testing::Combine(
        testing::Values(CallCase{"QueryContract", {Operation::QueryContract}, Operation::QueryContract},
                        CallCase{"GetData", {Operation::GetData}, Operation::GetData},
                        CallCase{"GetDataSize", {Operation::GetDataSize}, Operation::GetDataSize},
                        CallCase{"GetHeight", {Operation::GetHeight}, Operation::GetHeight},
                        CallCase{"GetWidth", {Operation::GetWidth}, Operation::GetWidth},
                        CallCase{.name = "GetTimeStamp",
                                 .throwing = {Operation::GetTimeStamp},
                                 .requiredCall = Operation::GetTimeStamp,
                                 .done = 1},
                        CallCase{.name = "OnFrameDone",
                                 .throwing = {Operation::OnFrameDone},
                                 .requiredCall = Operation::OnFrameDone,
                                 .done = 1},
                        CallCase{"GetDataAndRelease", {Operation::GetData, Operation::Release}, Operation::Release}),
        testing::Values(Kind::Standard, Kind::Other)),
    NameOfCase);

// Exceptions that end the event with a trace line: the frame itself succeeds.

class ThrowingEvent : public ThrowingCase {};

TEST_P(ThrowingEvent, IsATraceLineAndTheRaiserIsEndedAtMostOnce) {
    EXPECT_EQ(Receive(), 0);
    EXPECT_GT(Count(testCase.requiredCall), 0);
    EXPECT_EQ(errors->GetErrorCode(), 0);
    EXPECT_STREQ(errors->GetErrorMessage(), "");
    EXPECT_EQ(LastMessageOf("OnResult"), kind == Kind::Standard ? thrownText : "Exception");
    EXPECT_EQ(LastMessageOf("OnMayReleaseLicencePlate"), "Remove plate ID = 0, still left = 1");
    EXPECT_EQ(Count(Operation::Release), 1) << "the plate is done, and its frame with it";
    EXPECT_EQ(Count(Operation::OnFrameDone), 1);
    EXPECT_EQ(Count(Operation::Discard), testCase.discarded);
    EXPECT_EQ(Count(Operation::Raise), testCase.raised);
    host.refusals.arguments = false;
    ExpectRecovery();
    ExpectAllBuffersReleased();
}

INSTANTIATE_TEST_SUITE_P(
    At, ThrowingEvent,
    testing::Combine(
        testing::Values(
            CallCase{"GetInterface", {Operation::GetFactory}, Operation::GetFactory},
            CallCase{"CreateTargetEnumerator", {Operation::CreateTargetEnumerator}, Operation::CreateTargetEnumerator},
            CallCase{"CreateEventRaiser", {Operation::CreateEventRaiser}, Operation::CreateEventRaiser},
            CallCase{"GetEventArgs", {Operation::GetEventArgs}, Operation::GetEventArgs, 1},
            CallCase{"SetObjectValue", {Operation::SetObjectValue}, Operation::SetObjectValue, 1},
            CallCase{"AddTarget", {Operation::AddTarget}, Operation::AddTarget, 1},
            CallCase{"SetStringValue", {Operation::SetStringValue}, Operation::SetStringValue, 1},
            CallCase{"SetIntValue", {Operation::SetIntValue}, Operation::SetIntValue, 1},
            CallCase{"SetBinaryValue", {Operation::SetBinaryValue}, Operation::SetBinaryValue, 1},
            CallCase{"Raise", {Operation::Raise}, Operation::Raise, 0, 1},
            CallCase{"Discard", {Operation::Discard}, Operation::Discard, 1, 0, true},
            CallCase{"SetIntValueAndDiscard", {Operation::SetIntValue, Operation::Discard}, Operation::Discard, 1}),
        testing::Values(Kind::Standard, Kind::Other)),
    NameOfCase);

// Exceptions that are not reported: the buffer belongs to the host again.

class ThrowingRelease : public Throwing, public testing::WithParamInterface<Kind> {
  protected:
    ThrowingRelease() { Load(std::make_unique<Plugin>()); }

    void PrepareToThrow(bool reportsAtOnce = true) {
        Prepare(reportsAtOnce);
        throwing = {Operation::Release};
        throwsOther = GetParam() == Kind::Other;
    }
};

TEST_P(ThrowingRelease, OfAFinishedFrameDoesNotChangeItsOutcome) {
    PrepareToThrow();
    for (int frame = 0; frame < 5; ++frame) {
        EXPECT_EQ(Receive(), 0) << errors->GetErrorMessage();
    }
    EXPECT_GT(Count(Operation::Release), 0);
    ExpectRecovery();
    ExpectAllBuffersReleased();
}

TEST_P(ThrowingRelease, OfARefusedBufferDoesNotChangeItsError) {
    PrepareToThrow();
    EXPECT_EQ(Receive(recording_host::MakeBuffer(buffers, {.pixels = {}, .isComposite = false})), 1);
    EXPECT_STREQ(errors->GetErrorMessage(), "inputData is not an ICompositeBuffer");
    EXPECT_EQ(Count(Operation::Release), 1);
    ExpectRecovery();
    ExpectAllBuffersReleased();
}

TEST_P(ThrowingRelease, InADestroyedDetectorStillReleasesAllFrames) {
    PrepareToThrow(false);  // a plate that is not reported keeps its frame
    for (int frame = 0; frame < 3; ++frame) {
        Receive();
    }
    EXPECT_LT(Count(Operation::Release), buffers.made);
    ExpectAllBuffersReleased();
}

INSTANTIATE_TEST_SUITE_P(Of, ThrowingRelease, testing::Values(Kind::Standard, Kind::Other),
                         [](const auto& instance) { return NameOf(instance.param); });

// Calls from inside the host's operations

class CallsFromInside : public Throwing {
  protected:
    CallsFromInside() {
        Load(std::make_unique<Plugin>());
        Prepare();
        adjuster = static_cast<OKM8::IAsyncAdjuster*>(detector->QueryContract(ContractName::IAsyncAdjuster));
        values = static_cast<OKM8::Analytics::IMediaReceiverSingle2*>(
            detector->QueryContract(ContractName::IMediaReceiverSingle2));
        controller = static_cast<OKM8::Analytics::IMediaReceiverController*>(
            detector->QueryContract(ContractName::IMediaReceiverController));
    }

    void CallQuietly() {
        EXPECT_EQ(detector->QueryContract(ContractName::IDetector), detector);
        EXPECT_EQ(adjuster->SetIntValue("zone_width", 100), 0);
        EXPECT_EQ(values->SetStringValue("anything", "x"), 0);
        EXPECT_EQ(controller->Control1(), 0);
        EXPECT_EQ(errors->GetErrorCode(), 0);
        EXPECT_STREQ(errors->GetErrorMessage(), "");
        EXPECT_EQ(adjuster->SetIntValue("nothing", 1), 2816);
        EXPECT_STREQ(errors->GetErrorMessage(), "nothing");
    }

    OKM8::IAsyncAdjuster* adjuster = nullptr;
    OKM8::Analytics::IMediaReceiverSingle2* values = nullptr;
    OKM8::Analytics::IMediaReceiverController* controller = nullptr;
};

TEST_F(CallsFromInside, SettersAndErrorReadsWorkInEveryOperationAndDoNotChangeTheFrame) {
    std::set<Operation> requiredCall;
    onOperation = [&](Operation operation) {
        requiredCall.insert(operation);
        CallQuietly();
    };
    for (int frame = 0; frame < 4; ++frame) {
        EXPECT_EQ(Receive(), 0);
    }
    EXPECT_EQ(Count(Operation::Raise), 4);
    host.refusals.arguments = true;
    EXPECT_EQ(Receive(), 1);
    EXPECT_STREQ(errors->GetErrorMessage(), "IEventArgsAdjuster getting error");
    onOperation = nullptr;
    for (int each = static_cast<int>(Operation::GetFactory); each < static_cast<int>(Operation::Count); ++each) {
        EXPECT_TRUE(requiredCall.contains(static_cast<Operation>(each))) << each;
    }
    host.refusals.arguments = false;
    ExpectRecovery();
    ExpectAllBuffersReleased();
}

// The engine

class ThrowingEngine : public Throwing, public testing::WithParamInterface<std::tuple<std::string, Kind>> {
  protected:
    ~ThrowingEngine() override { Behave(); }

    void Behave() {
        SetEnvironment(throwing_engine::functionVariable, "");
        SetEnvironment(throwing_engine::otherVariable, "");
    }
};

TEST_P(ThrowingEngine, IsATraceLineAndTheFrameSucceeds) {
    Load(std::make_unique<Plugin>(servers::OwnFolder() / VEXLANE_THROWING_ENGINE));
    Prepare();
    EXPECT_EQ(Receive(), 0);
    EXPECT_EQ(LastMessageOf("Recognize"), "Frame count: 1 Iteration : 0 NumberOfPlate is 0");
    const auto& [function, kind] = GetParam();
    SetEnvironment(throwing_engine::functionVariable, function);
    SetEnvironment(throwing_engine::otherVariable, kind == Kind::Other ? "1" : "");
    EXPECT_EQ(Receive(), 0);
    EXPECT_EQ(errors->GetErrorCode(), 0);
    EXPECT_STREQ(errors->GetErrorMessage(), "");
    EXPECT_EQ(LastMessageOf("Recognize"), kind == Kind::Standard ? throwing_engine::thrownText : "Exception");
    EXPECT_EQ(Count(Operation::OnFrameDone), 2);
    Behave();
    std::int32_t code = -1;
    std::thread([&] { code = Receive(); }).join();
    EXPECT_EQ(code, 0);
    EXPECT_EQ(LastMessageOf("Recognize"), "Frame count: 3 Iteration : 0 NumberOfPlate is 0");
    ExpectAllBuffersReleased();
}

INSTANTIATE_TEST_SUITE_P(At, ThrowingEngine,
                         testing::Combine(testing::Values(std::string(throwing_engine::recognize),
                                                          std::string(throwing_engine::setRange)),
                                          testing::Values(Kind::Standard, Kind::Other)),
                         [](const auto& instance) {
                             return std::string(std::get<0>(instance.param)) + "With" +
                                    NameOf(std::get<1>(instance.param));
                         });

}  // namespace
