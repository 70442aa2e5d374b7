#include "tools/validate/session.h"

#include <chrono>
#include <exception>
#include <fstream>
#include <mutex>
#include <utility>

#include "sdk/contract_names.h"
#include "sdk/setting_keys.h"
#include "tools/validate/case.h"

namespace validate {

using nlohmann::json;
using recording_host::HostCall;
using recording_host::Operation;

namespace ContractName = OKM8::ContractName;
namespace SettingKey = OKM8::Analytics::SettingKey;

namespace {

template <class Interface>
void Query(OKM8::IContract& object, const char* name, Interface*& found) {
    found = static_cast<Interface*>(object.QueryContract(name));
    Expect(found != nullptr, std::string("the detector has no ") + name);
}

}  // namespace

std::string ScriptOf(const std::vector<ScriptedFrame>& frames, const std::string& settings) {
    json list = json::array();
    for (const ScriptedFrame& frame : frames) {
        json plates = json::array();
        for (const ScriptedPlate& plate : frame) {
            const int right = plate.x + plate.width;
            const int bottom = plate.y + plate.height;
            plates.push_back({{"text", plate.text},
                              {"confidence", plate.confidence},
                              {"corners", {{plate.x, plate.y}, {plate.x, bottom}, {right, plate.y}, {right, bottom}}}});
        }
        list.push_back({{"plates", plates}});
    }
    return "{" + settings + "\"journal\":\"journal\",\"frames\":" + list.dump() + "}";
}

std::string ScriptOfVehicles(int frames, const std::string& settings) {
    constexpr int columns = 4;
    constexpr int rows = 8;
    std::vector<ScriptedFrame> script;
    for (int frame = 0; frame < frames; ++frame) {
        script.push_back({{.text = std::string(16, static_cast<char>('A' + frame % 26)),
                           .x = frame % columns * 14,
                           .y = frame / columns % rows * 5,
                           .width = 9,
                           .height = 4}});
    }
    return ScriptOf(script, settings);
}

Session::Session(std::filesystem::path engineFile, std::filesystem::path libraryFile,
                 const std::filesystem::path& caseFolder)
    : folder(caseFolder), engineFile_(std::move(engineFile)), libraryFile_(std::move(libraryFile)) {
    buffers.keepsReleased = true;
    host.onCall = buffers.onCall = frameDone.onCall = [this](HostCall& call) {
        ++counts_[static_cast<std::size_t>(call.operation)];
        if (onCall) {
            onCall(call);
        }
    };
    folder.SetScript(ScriptOf({}));
}

void Session::End() {
    onCall = nullptr;
    DestroyAll();
    Finalize();
    Unload();
    if (!loses) {
        ExpectEqual("the number of buffers that were released at least once", buffers.released.load(),
                    buffers.made.load());
        ExpectEqual("the number of raisers that were raised or discarded",
                    Count(Operation::Raise) + Count(Operation::Discard), static_cast<int>(host.Events().size()));
    }
    ExpectEqual("the number of buffers that were released again", buffers.releasedAgain.load(), 0);
    ExpectEqual("the number of calls on released buffers", buffers.usedAfterRelease.load(), 0);
    for (const recording_host::RecordedEvent& event : host.Events()) {
        Expect(event.raised + event.discarded <= 1, "a raiser was raised or discarded more than once");
    }
    ExpectEqual("the number of calls of operations that are not used", Count(Operation::Unused), 0);
}

Library& Session::Loaded() {
    if (library_ == nullptr) {
        library_ = std::make_unique<Library>(engineFile_, libraryFile_);
    }
    return *library_;
}

OKM8::Analytics::IModule& Session::Module() {
    if (module_ == nullptr) {
        ExpectEqual("the result of InitializeModule", Loaded().InitializeModule(host.Object()), 0);
        module_ = Loaded().GetModule();
        Expect(module_ != nullptr, "GetModule returns null");
    }
    return *module_;
}

Detector Session::CreateDetector(int peer) {
    Detector detector;
    detector.object = Module().CreateDetector(nullptr, host.Peer(peer));
    Expect(detector.object != nullptr, "CreateDetector returns null");
    detectors_.push_back(detector.object);
    Query(*detector.object, ContractName::IMediaReceiver, detector.receiver);
    Query(*detector.object, ContractName::IMediaReceiverSingle2, detector.single);
    Query(*detector.object, ContractName::IAsyncAdjuster, detector.settings);
    Query(*detector.object, ContractName::IErrorInfoProvider, detector.errors);
    Query(*detector.object, ContractName::IMediaReceiverController, detector.controller);
    return detector;
}

Detector Session::CreateReportingDetector() {
    const Detector detector = CreateDetector();
    detector.settings->SetBoolValue(SettingKey::ResultReady, true);
    detector.settings->SetIntValue(SettingKey::ResultRecCount, 1);
    detector.settings->SetIntValue(SettingKey::ResultWaitTime, 1000);
    detector.settings->ApplySettings();
    return detector;
}

void Session::Destroy(const Detector& detector) {
    std::erase(detectors_, detector.object);
    detector.object->Destroy();
}

void Session::DestroyAll() {
    while (!detectors_.empty()) {
        OKM8::Analytics::IDetector* const last = detectors_.back();
        detectors_.pop_back();
        if (!loses) {
            last->Destroy();
        }
    }
}

void Session::Finalize() {
    if (module_ != nullptr) {
        Loaded().FinalizeModule();
        module_ = nullptr;
    }
}

void Session::Unload() {
    library_.reset();
    module_ = nullptr;
}

std::vector<json> Session::Journal() const {
    std::ifstream file(folder.Path() / "journal");
    std::vector<json> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(json::parse(line));
    }
    return lines;
}

OKM8::MFF::IMultimediaBuffer* Session::Frame(std::uint32_t width, std::uint32_t height) {
    return recording_host::MakeFrame(buffers, width, height, time += period);
}

OKM8::MFF::IMultimediaBuffer* Session::FrameOf(recording_host::BufferOptions options) {
    options.timeStamp = time += period;
    return recording_host::MakeBuffer(buffers, std::move(options));
}

std::int32_t Session::Receive(const Detector& detector, OKM8::MFF::IMultimediaBuffer* buffer) {
    return detector.single->ReceiveSingle(buffer, nullptr, &frameDone);
}

void Session::ExpectOutcome(const std::string& what, const Detector& detector, std::int32_t result,
                            const std::string& error) {
    const std::int32_t code = error.empty() ? OKM8::ErrorCode::None : OKM8::ErrorCode::Failed;
    ExpectEqual("the error text after " + what, std::string(detector.errors->GetErrorMessage()), error);
    ExpectEqual("the error code after " + what, detector.errors->GetErrorCode(), code);
    ExpectEqual("the result of " + what, result, code);
}

int Session::Count(Operation operation) const {
    return counts_[static_cast<std::size_t>(operation)];
}

void RunTogether(const std::vector<std::function<void()>>& functions) {
    std::mutex mutex;
    std::exception_ptr first;
    std::vector<std::thread> threads;
    for (const std::function<void()>& function : functions) {
        threads.emplace_back([&] {
            try {
                function();
            } catch (...) {
                const std::lock_guard lock(mutex);
                if (first == nullptr) {
                    first = std::current_exception();
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    if (first != nullptr) {
        std::rethrow_exception(first);
    }
}

bool WaitUntil(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

}  // namespace validate
