// The library with one fault, which the environment variable VEXLANE_FAULT names. Without one it is correct. Each fault
// is a mistake that a change of the library could make.

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "diagnostics/debug_level.h"
#include "engine/vexlane_detector_impl.h"
#include "module/base_module_impl.h"
#include "platform/debug_output.h"
#include "sdk/contract_names.h"
#include "sdk/module.h"

#if defined(_WIN32)
#define EXPORT __declspec(dllexport)
#else
#define EXPORT __attribute__((visibility("default")))
#endif

namespace {

using namespace OKM8;
using namespace OKM8::Analytics;
using OKM8::MFF::ICompositeBuffer;
using OKM8::MFF::IMultimediaBuffer;

bool Has(const char* fault) {
    const char* const selected = std::getenv("VEXLANE_FAULT");
    return selected != nullptr && std::strcmp(selected, fault) == 0;
}

// Forwards what an object of the contract does not change.
template <class Interface>
struct Wrapper : Interface {
    explicit Wrapper(Interface& object) : wrapped(object) {}
    void* QueryContract(const char* name) override { return wrapped.QueryContract(name); }
    void* QueryContract(const char* name) const override { return wrapped.QueryContract(name); }
    Interface& wrapped;
};

// A buffer that is released more than once, or never.
struct WrongBuffer final : Wrapper<ICompositeBuffer> {
    WrongBuffer(ICompositeBuffer& object, int releaseCount) : Wrapper(object), releases(releaseCount) {}
    OKM8_OBJECT_DESTRUCTOR_SLOT(WrongBuffer)
    void* QueryContract(const char* name) override { return wrapped.QueryContract(name) != nullptr ? this : nullptr; }
    void* QueryContract(const char* name) const override { return const_cast<WrongBuffer*>(this)->QueryContract(name); }
    std::uint64_t GetTimeStamp() override { return wrapped.GetTimeStamp(); }
    void Unused1() override {}
    void Unused2() override {}
    void Release() override {
        for (int release = 0; release < releases; ++release) {
            wrapped.Release();
        }
    }
    std::uint8_t* GetData() override { return wrapped.GetData(); }
    std::uint32_t GetDataSize() override { return wrapped.GetDataSize(); }
    std::uint32_t GetWidth() override { return wrapped.GetWidth(); }
    std::uint32_t GetHeight() override { return wrapped.GetHeight(); }

    const int releases;
};

// An event that is raised twice.
struct WrongRaiser final : Wrapper<IDetectorEventRaiser> {
    using Wrapper::Wrapper;
    OKM8_OBJECT_DESTRUCTOR_SLOT(WrongRaiser)
    void Unused1() override {}
    void Raise() override {
        wrapped.Raise();
        if (Has("an event raised twice")) {
            wrapped.Raise();
        }
    }
    void Discard() override {
        if (!Has("an event neither raised nor discarded")) {
            wrapped.Discard();
        }
    }
    IEventArgsAdjuster* GetEventArgs() override { return wrapped.GetEventArgs(); }
};

struct WrongPeer final : Wrapper<IDetectorPeer> {
    using Wrapper::Wrapper;
    OKM8_OBJECT_DESTRUCTOR_SLOT(WrongPeer)
    IDetectorEventRaiser* CreateEventRaiser(IDetector* detector, const char* eventName, std::int64_t timeMs,
                                            std::int32_t kind) override {
        IDetectorEventRaiser* const raiser = wrapped.CreateEventRaiser(detector, eventName, timeMs, kind);
        return raiser == nullptr ? nullptr : raisers.emplace_back(std::make_unique<WrongRaiser>(*raiser)).get();
    }
    std::vector<std::unique_ptr<WrongRaiser>> raisers;
};

// Setters with two slots exchanged, or one that does not look at the type.
struct WrongAdjuster final : Wrapper<IAsyncAdjuster> {
    using Wrapper::Wrapper;
    OKM8_OBJECT_DESTRUCTOR_SLOT(WrongAdjuster)
    std::int32_t SetStringValue(const char* name, const char* value) override {
        return wrapped.SetStringValue(name, value);
    }
    std::int32_t SetDoubleValue(const char* name, double value) override { return wrapped.SetDoubleValue(name, value); }
    std::int32_t SetIntValue(const char* name, std::int32_t value) override {
        return Has("a moved slot") ? wrapped.SetBoolValue(name, value != 0) : wrapped.SetIntValue(name, value);
    }
    std::int32_t SetBoolValue(const char* name, bool value) override {
        if (Has("a setting of the wrong type accepted") && wrapped.SetIntValue(name, value ? 1 : 0) == 0) {
            return 0;
        }
        return Has("a moved slot") ? wrapped.SetIntValue(name, value ? 1 : 0) : wrapped.SetBoolValue(name, value);
    }
    void ApplySettings() override { wrapped.ApplySettings(); }
};

class FaultyDetector final : private std::unique_ptr<WrongPeer>, public plate_recognition::VexlaneDetectorImpl {
  public:
    FaultyDetector(IContract* hostPeer, void* hostObject)
        : unique_ptr(std::make_unique<WrongPeer>(*static_cast<IDetectorPeer*>(hostPeer))),
          VexlaneDetectorImpl(get(), hostObject) {
        if (Has("a thread left behind")) {
            std::thread([] { std::this_thread::sleep_for(std::chrono::hours(1)); }).detach();
        }
    }
    OKM8_OBJECT_DESTRUCTOR_SLOT(FaultyDetector)

    void* QueryContract(const char* contractName) override {
        if (Has("a null name read") && std::strlen(contractName) == 0) {
            return nullptr;
        }
        if (contractName != nullptr && Has("a name compared by its beginning") &&
            std::strncmp(contractName, "struct OKM8::IContract", 22) == 0) {
            return static_cast<IDetector*>(this);
        }
        void* const found = VexlaneDetectorImpl::QueryContract(contractName);
        auto* const own = static_cast<IAsyncAdjuster*>(this);
        return found == own && (Has("a moved slot") || Has("a setting of the wrong type accepted")) ? &adjuster_
                                                                                                    : found;
    }
    void* QueryContract(const char* contractName) const override {
        return const_cast<FaultyDetector*>(this)->QueryContract(contractName);
    }

    std::int32_t ProcessInput(IMultimediaBuffer* inputData, IContract* frameDoneCallback) override {
        const int releases = Has("a buffer released twice") ? 2 : Has("a buffer never released") ? 0 : 1;
        std::int32_t outcome = 0;
        void* const picture =
            releases == 1 || inputData == nullptr ? nullptr : inputData->QueryContract(ContractName::ICompositeBuffer);
        if (picture != nullptr) {
            buffers_.push_back(std::make_unique<WrongBuffer>(*static_cast<ICompositeBuffer*>(picture), releases));
            outcome = VexlaneDetectorImpl::ProcessInput(buffers_.back().get(), frameDoneCallback);
        } else {
            outcome = VexlaneDetectorImpl::ProcessInput(inputData, frameDoneCallback);
        }
        if (frameDoneCallback != nullptr && outcome == 0 && Has("a frame done twice")) {
            static_cast<MFF::IFrameDoneCallback*>(frameDoneCallback)->OnFrameDone(inputData);
        }
        if (outcome != 0 && Has("a lock left locked")) {
            frameMutex.lock();
        }
        if (outcome != 0 && inputData != nullptr && Has("another error text")) {
            Fail("Wrong frame format");
        }
        return outcome;
    }

    void Recognize(plate_recognition::FrameImage& frame, boost::shared_ptr<ICompositeBuffer> buffer) override {
        if (Has("a debug line at level 0")) {
            platform::WriteDebugOutput("Recognize");
        }
        VexlaneDetectorImpl::Recognize(frame, std::move(buffer));
    }

    void FillEventArguments(const plate_recognition::RecognitionResult& result, ITargetValues& values) override {
        VexlaneDetectorImpl::FillEventArguments(result, values);
        if (Has("an event key of its own")) {
            values.SetIntValue("version", 1);
        }
    }

  private:
    WrongAdjuster adjuster_{*this};
    std::vector<std::unique_ptr<WrongBuffer>> buffers_;
};

using Module = BaseModuleImpl<FaultyDetector>;

void* hostObject = nullptr;
IModule* moduleObject = nullptr;

}  // namespace

extern "C" {

EXPORT std::int32_t InitializeModule(void* host) {
    diagnostics::SetDebugLevel(diagnostics::ReadDebugLevel());
    hostObject = host;
    return 0;
}

EXPORT IModule* GetModule() {
    if (moduleObject == nullptr && hostObject != nullptr) {
        moduleObject = new Module(hostObject);
    }
    return moduleObject;
}

EXPORT void FinalizeModule() {
    OKM8::DestroyThroughSlot(moduleObject);
    moduleObject = nullptr;
    if (!Has("a host that is not forgotten")) {
        hostObject = nullptr;
    }
}

}  // extern "C"
