// A detector library that logs the host's calls and misbehaves on demand. Its own settings begin with "test_".
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <variant>

#include "engine/engine_records.h"
#include "sdk/contract_names.h"
#include "sdk/detector.h"
#include "sdk/host.h"
#include "sdk/module.h"
#include "sdk/plate_events.h"
#include "tests/host/checksum.h"
#include "tests/host/export.h"

namespace {

using namespace OKM8;
using namespace OKM8::Analytics;
namespace Names = OKM8::ContractName;

IHost* hostObject = nullptr;

void Log(const std::string& text) {
    auto* const logger = static_cast<ILogger*>(hostObject->GetInterface(Names::ILogger));
    logger->WriteLog(3, (text + "\n").c_str());
}

bool Is(const char* name, const char* contractName) {
    return name != nullptr && std::strcmp(name, contractName) == 0;
}

struct Settings {
    bool halfFrame = false, useArea = false, resultReady = false;
    int left = 0, top = 0, right = 0, bottom = 0, zoneWidth = 0, zoneWidthMin = 0, waitTime = 0, recCount = 0;
    std::string id, name;
    int eventEvery = 0;
    int failEvery = 0;
    int keepBuffers = 0;
    std::string text = "A123BC";
    bool brokenText = false;
    bool loseRaiser = false;
    bool loseTargets = false;
    bool discard = false;
    bool holdFrames = false;
    bool wrongDone = false;
    bool destroyWaits = false;
    bool applyFails = false;
    bool throws = false;
    bool twoTargets = false;
};

class TestDetector final : public IDetector,
                           public IMediaReceiver,
                           public IMediaReceiverSingle2,
                           public IAsyncAdjuster,
                           public IErrorInfoProvider,
                           public IMediaReceiverController {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(TestDetector)

    explicit TestDetector(IDetectorPeer& peer) : peer_(peer) { Log("detector made"); }

    void* QueryContract(const char* name) override {
        if (Is(name, Names::IContract) || Is(name, Names::IDestroyable) || Is(name, Names::IDetector)) {
            return static_cast<IDetector*>(this);
        }
        if (Is(name, Names::IMediaReceiver)) {
            return static_cast<IMediaReceiver*>(this);
        }
        if (Is(name, Names::IMediaReceiverSingle) || Is(name, Names::IMediaReceiverSingle2)) {
            return static_cast<IMediaReceiverSingle2*>(this);
        }
        if (Is(name, Names::IAsyncAdjuster)) {
            return static_cast<IAsyncAdjuster*>(this);
        }
        if (Is(name, Names::IErrorInfoProvider)) {
            return static_cast<IErrorInfoProvider*>(this);
        }
        if (Is(name, Names::IMediaReceiverController)) {
            return static_cast<IMediaReceiverController*>(this);
        }
        return nullptr;
    }
    void* QueryContract(const char* name) const override {
        return const_cast<TestDetector*>(this)->QueryContract(name);
    }

    void Destroy() override {
        Log("detector destroyed");
        while (values_.destroyWaits) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        delete this;
    }

    int32_t Receive(MFF::IMultimediaBuffer* inputData) override { return Process(inputData, nullptr, nullptr); }

    int32_t ReceiveSingle(MFF::IMultimediaBuffer* inputData, const FrameArea* area,
                          IContract* frameDoneCallback) override {
        return Process(inputData, area, static_cast<MFF::IFrameDoneCallback*>(frameDoneCallback));
    }

    int32_t SetStringValue(const char* name, const char* value) override { return Bind(name, std::string(value)); }
    int32_t SetDoubleValue(const char* name, double) override { return Fail(2816, name); }
    int32_t SetIntValue(const char* name, int32_t value) override { return Bind(name, value); }
    int32_t SetBoolValue(const char* name, bool value) override { return Bind(name, value); }

    void ApplySettings() override {
        Succeed();
        if (values_.applyFails) {
            Fail(1, "nothing applies");
        }
    }

    int32_t GetErrorCode() override { return errorCode_; }
    const char* GetErrorMessage() override { return errorText_.c_str(); }

    int32_t Control1() override { return 0; }
    int32_t Control2() override { return 0; }
    int32_t Control3() override { return 0; }
    int32_t Control4() override { return 0; }
    int32_t Control5() override { return 0; }

  private:
    int32_t Succeed() {
        errorCode_ = 0;
        errorText_.clear();
        return 0;
    }

    int32_t Fail(int32_t code, const char* text) {
        errorCode_ = code;
        errorText_ = text;
        return code;
    }

    template <class Value>
    int32_t Bind(const char* name, const Value& value) {
        const auto found = bindings_.find(name);
        Value* const* const member = found == bindings_.end() ? nullptr : std::get_if<Value*>(&found->second);
        if (member == nullptr) {
            return Fail(2816, name);
        }
        **member = value;
        return Succeed();
    }

    int32_t Process(MFF::IMultimediaBuffer* input, const FrameArea* area, MFF::IFrameDoneCallback* done) {
        Succeed();
        auto* const buffer = static_cast<MFF::ICompositeBuffer*>(input->QueryContract(Names::ICompositeBuffer));
        ++frameCount_;
        if (values_.failEvery != 0 && frameCount_ % values_.failEvery == 0) {
            Fail(1, "asked to\nfail");
        } else if (values_.eventEvery != 0 && frameCount_ % values_.eventEvery == 0) {
            RaiseEvent(*buffer, area);
        }
        if (done != nullptr && errorCode_ == 0 && !values_.holdFrames) {
            done->OnFrameDone(values_.wrongDone ? nullptr : input);
        }
        if (values_.keepBuffers > 0) {
            --values_.keepBuffers;
        } else {
            buffer->Release();
        }
        if (values_.throws) {
            throw std::runtime_error("thrown by the test");
        }
        return errorCode_;
    }

    void RaiseEvent(MFF::ICompositeBuffer& buffer, const FrameArea* area) {
        const auto time = static_cast<int64_t>(buffer.GetTimeStamp());
        auto* const factory =
            static_cast<ITargetEnumeratorFactory*>(hostObject->GetInterface(Names::ITargetEnumeratorFactory));
        ITargetEnumeratorAdjuster* const targets = factory->CreateTargetEnumerator(time);
        if (values_.loseTargets) {
            return;
        }
        IDetectorEventRaiser* const raiser = peer_.CreateEventRaiser(this, EventName::Plate, time, 3);
        raiser->GetEventArgs()->SetObjectValue(EventKey::Targets, targets);
        if (values_.loseRaiser) {
            return;
        }
        ITargetAdjuster* const target = targets->AddTarget(0);
        Fill(*target, buffer, area);
        if (values_.twoTargets) {
            targets->AddTarget(0)->SetBoolValue("second", true);
        }
        const TrackPoint points[]{{1, 2, 30, 10, TrackTimeEpoch + time * 1000, 0, {}},
                                  {-5, 6, 31, 11, INT64_MAX, 0, {}}};
        const TrackPointList track{points, points + 2, points + 2};
        dynamic_cast<IBinaryAdjuster&>(*target).SetBinaryValue(PlateKey::AllTracks, &track, sizeof track);
        if (values_.discard) {
            raiser->Discard();
        } else {
            raiser->Raise();
        }
    }

    // The test engines return their names.
    static std::string EngineName() {
        IMG image{};
        std::array<RPLATE, engineRecordCount> plates{};
        Recognize2(nullptr, &image, nullptr, plates.data(), 0);
        return plates.front().text;
    }

    void Fill(ITargetAdjuster& target, MFF::ICompositeBuffer& buffer, const FrameArea* area) {
        target.SetStringValue(PlateKey::Text, values_.brokenText ? "\xC3(\xFFz" : values_.text.c_str());
        target.SetIntValue(PlateKey::CharacterCount, frameCount_);
        target.SetStringValue(PlateKey::Country, EngineName().c_str());
        target.SetIntValue(PlateKey::Confidence, 99);
        target.SetIntValue(PlateKey::Direction, 0);
        target.SetIntValue(PlateKey::Left, static_cast<int32_t>(buffer.GetWidth()));
        target.SetIntValue(PlateKey::Top, static_cast<int32_t>(buffer.GetHeight()));
        target.SetIntValue(PlateKey::Right, static_cast<int32_t>(buffer.GetDataSize()));
        target.SetIntValue(PlateKey::Bottom, values_.recCount);
        if (area != nullptr) {
            target.SetIntValue(PlateKey::AreaLeft, area->x);
            target.SetIntValue(PlateKey::AreaTop, area->y);
            target.SetIntValue(PlateKey::AreaRight, area->width);
            target.SetIntValue(PlateKey::AreaBottom, area->height);
        }
        target.SetStringValue("id", values_.id.c_str());
        target.SetBoolValue("use_area", values_.useArea);
        target.SetStringValue("checksum",
                              std::to_string(host_test::Checksum(buffer.GetData(), buffer.GetDataSize())).c_str());
    }

    using Binding = std::variant<bool*, int32_t*, std::string*>;

    IDetectorPeer& peer_;
    Settings values_;
    const std::map<std::string, Binding> bindings_{
        {"use_half_cadr", &values_.halfFrame},
        {"id", &values_.id},
        {"name", &values_.name},
        {"use_area", &values_.useArea},
        {"area_left", &values_.left},
        {"area_top", &values_.top},
        {"area_right", &values_.right},
        {"area_bottom", &values_.bottom},
        {"zone_width", &values_.zoneWidth},
        {"zone_width_min", &values_.zoneWidthMin},
        {"result_ready", &values_.resultReady},
        {"result_wait_time", &values_.waitTime},
        {"result_rec_count", &values_.recCount},
        {"test_event_every", &values_.eventEvery},
        {"test_fail_every", &values_.failEvery},
        {"test_keep_buffers", &values_.keepBuffers},
        {"test_text", &values_.text},
        {"test_broken_text", &values_.brokenText},
        {"test_lose_raiser", &values_.loseRaiser},
        {"test_lose_targets", &values_.loseTargets},
        {"test_discard", &values_.discard},
        {"test_hold_frames", &values_.holdFrames},
        {"test_wrong_done", &values_.wrongDone},
        {"test_destroy_waits", &values_.destroyWaits},
        {"test_apply_fails", &values_.applyFails},
        {"test_throws", &values_.throws},
        {"test_two_targets", &values_.twoTargets},
    };
    int32_t frameCount_ = 0;
    int32_t errorCode_ = 0;
    std::string errorText_;
};

class TestModule final : public IModule {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(TestModule)

    void* QueryContract(const char* name) override {
        return Is(name, Names::IContract) || Is(name, Names::IPluginModule) || Is(name, Names::IModule) ? this
                                                                                                        : nullptr;
    }
    void* QueryContract(const char* name) const override { return const_cast<TestModule*>(this)->QueryContract(name); }

    IDetector* CreateDetector(void*, IContract* detectorPeer) override {
        return new TestDetector(*static_cast<IDetectorPeer*>(detectorPeer));
    }
};

TestModule* testModule = nullptr;

struct UnloadLogger {
    ~UnloadLogger() { std::fputs("test plug-in unloaded\n", stderr); }
} unloadTeller;

}  // namespace

extern "C" {

HOST_TEST_EXPORT int32_t InitializeModule(void* host) {
    hostObject = static_cast<IHost*>(host);
    return 0;
}

HOST_TEST_EXPORT IModule* GetModule() {
    if (testModule == nullptr) {
        testModule = new TestModule;
    }
    return testModule;
}

HOST_TEST_EXPORT void FinalizeModule() {
    Log("module finalized");
    delete testModule;
    testModule = nullptr;
    hostObject = nullptr;
}
}
