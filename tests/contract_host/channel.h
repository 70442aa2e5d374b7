/// The library as the host loads it, and one of its detectors.
#pragma once

#include "sdk/contract_names.h"
#include "sdk/detector.h"
#include "sdk/module.h"
#include "tests/contract_host/checks.h"
#include "tests/contract_host/host_objects.h"

namespace contract_host {

/// Needs more than 32 bits, as a current time does.
inline constexpr uint64_t frameTime = 1700000000123;

/// The library, loaded once.
struct Plugin {
    Plugin() : library(LoadPlugin()) {
        ReportCheck("the library is loaded", library != nullptr);
        initialize = Find<OKM8::Analytics::InitializeModuleFunction>(OKM8::ExportName::InitializeModule);
        getModule = Find<OKM8::Analytics::GetModuleFunction>(OKM8::ExportName::GetModule);
        finalize = Find<OKM8::Analytics::FinalizeModuleFunction>(OKM8::ExportName::FinalizeModule);
    }
    ~Plugin() { UnloadPlugin(library); }
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    template <class Function>
    Function* Find(const char* name) {
        void* const found = library != nullptr ? FindExport(library, name) : nullptr;
        ReportCheck(name, found != nullptr);
        return reinterpret_cast<Function*>(found);
    }
    bool IsComplete() const { return initialize != nullptr && getModule != nullptr && finalize != nullptr; }

    void* library;
    OKM8::Analytics::InitializeModuleFunction* initialize = nullptr;
    OKM8::Analytics::GetModuleFunction* getModule = nullptr;
    OKM8::Analytics::FinalizeModuleFunction* finalize = nullptr;
};

/// One detector of a freshly initialised module, and its host objects.
struct Channel {
    explicit Channel(Plugin& used) : plugin(used) {
        plugin.initialize(static_cast<OKM8::IHost*>(&host));
        module = plugin.getModule();
        detector = module->CreateDetector(nullptr, &peer);
        if (detector == nullptr) {
            ReportCheck("a detector is created", false);
            return;
        }
        Query(receiver, OKM8::ContractName::IMediaReceiver);
        Query(single, OKM8::ContractName::IMediaReceiverSingle2);
        Query(adjuster, OKM8::ContractName::IAsyncAdjuster);
        Query(errors, OKM8::ContractName::IErrorInfoProvider);
        Query(controller, OKM8::ContractName::IMediaReceiverController);
    }
    ~Channel() {
        if (detector != nullptr) {
            detector->Destroy();
        }
        plugin.finalize();
        Equal("no unexpected calls", unexpectedCalls, 0);
        unexpectedCalls = 0;
    }
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    bool IsComplete() const {
        return detector != nullptr && receiver != nullptr && single != nullptr && adjuster != nullptr &&
               errors != nullptr && controller != nullptr;
    }

    template <class Part>
    void Query(Part*& part, const char* name) {
        part = static_cast<Part*>(detector->QueryContract(name));
        if (part == nullptr) {
            ReportCheck(name, false);
        }
    }

    void ReportPlatesAfter(int32_t readings) {
        adjuster->SetIntValue("zone_width", 100);
        adjuster->SetIntValue("zone_width_min", 0);
        adjuster->SetBoolValue("result_ready", true);
        adjuster->SetIntValue("result_wait_time", 1000000);
        adjuster->SetIntValue("result_rec_count", readings);
        adjuster->ApplySettings();
    }

    void ExpectError(const char* what, int32_t code, const char* text) {
        Equal(what, errors->GetErrorCode(), code);
        Equal(what, errors->GetErrorMessage(), text);
    }

    void Refuse() { adjuster->SetIntValue("no_such_setting", 1); }

    Plugin& plugin;
    Host host;
    DetectorPeer peer;
    OKM8::Analytics::IModule* module = nullptr;
    OKM8::Analytics::IDetector* detector = nullptr;
    OKM8::Analytics::IMediaReceiver* receiver = nullptr;
    OKM8::Analytics::IMediaReceiverSingle2* single = nullptr;
    OKM8::IAsyncAdjuster* adjuster = nullptr;
    OKM8::IErrorInfoProvider* errors = nullptr;
    OKM8::Analytics::IMediaReceiverController* controller = nullptr;
};

}  // namespace contract_host
