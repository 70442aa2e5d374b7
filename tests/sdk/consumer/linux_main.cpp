// The smallest host: loads the library, creates one detector, and hands it no frame.

#include <dlfcn.h>

#include <cstdio>

#include "sdk/contract_names.h"
#include "sdk/host.h"
#include "sdk/module.h"
#include "sdk/plate_events.h"
#include "sdk/setting_keys.h"

namespace {

using namespace OKM8;

struct Host final : IHost {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Host)
    void* QueryContract(const char*) override { return nullptr; }
    void* QueryContract(const char*) const override { return nullptr; }
    void* GetInterface(const char*) override { return nullptr; }
};

struct Peer final : Analytics::IDetectorPeer {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Peer)
    void* QueryContract(const char*) override { return nullptr; }
    void* QueryContract(const char*) const override { return nullptr; }
    Analytics::IDetectorEventRaiser* CreateEventRaiser(Analytics::IDetector*, const char*, int64_t, int32_t) override {
        return nullptr;
    }
};

template <class Function>
Function* Load(void* library, const char* name) {
    return reinterpret_cast<Function*>(dlsym(library, name));
}

}  // namespace

int main(int argumentCount, char** arguments) {
    void* const library = argumentCount == 2 ? dlopen(arguments[1], RTLD_NOW) : nullptr;
    if (library == nullptr) {
        std::fprintf(stderr, "consumer: %s\n", argumentCount == 2 ? dlerror() : "usage: consumer LIBRARY");
        return 1;
    }
    using namespace Analytics;
    Host host;
    Peer peer;
    if (Load<InitializeModuleFunction>(library, ExportName::InitializeModule)(&host) != ErrorCode::None) {
        return 1;
    }
    IModule* const module = Load<GetModuleFunction>(library, ExportName::GetModule)();
    IDetector* const detector = module->CreateDetector(nullptr, &peer);
    IAsyncAdjuster* const settings =
        static_cast<IAsyncAdjuster*>(detector->QueryContract(ContractName::IAsyncAdjuster));
    const bool isSet = settings->SetIntValue(SettingKey::ZoneWidth, 40) == ErrorCode::None &&
                       settings->SetIntValue("no setting", 1) == ErrorCode::RefusedSetting;
    detector->Destroy();
    Load<FinalizeModuleFunction>(library, ExportName::FinalizeModule)();
    std::puts(isSet ? "consumer: the library takes its settings" : "consumer: the library refuses a setting");
    return isSet ? 0 : 1;
}
