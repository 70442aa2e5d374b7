// The three functions that the library exports.

#include <type_traits>

#include "diagnostics/debug_level.h"
#include "engine/vexlane_detector_impl.h"
#include "module/base_module_impl.h"
#include "sdk/module.h"

#if defined(_WIN32)
#define VEXLANE_EXPORT __declspec(dllexport)
#else
#define VEXLANE_EXPORT __attribute__((visibility("default")))
#endif

namespace {

using Module = BaseModuleImpl<plate_recognition::VexlaneDetectorImpl>;

void* hostObject = nullptr;
OKM8::Analytics::IModule* moduleObject = nullptr;

}  // namespace

extern "C" {

VEXLANE_EXPORT std::int32_t InitializeModule(void* host) {
    diagnostics::SetDebugLevel(diagnostics::ReadDebugLevel());
    hostObject = host;
    return 0;
}

VEXLANE_EXPORT OKM8::Analytics::IModule* GetModule() {
    if (moduleObject == nullptr && hostObject != nullptr) {
        moduleObject = new Module(hostObject);
    }
    return moduleObject;
}

VEXLANE_EXPORT void FinalizeModule() {
    OKM8::DestroyThroughSlot(moduleObject);
    moduleObject = nullptr;
    hostObject = nullptr;
}

}  // extern "C"

// The exports have the types of the contract.
static_assert(std::is_same_v<decltype(InitializeModule), OKM8::Analytics::InitializeModuleFunction>);
static_assert(std::is_same_v<decltype(GetModule), OKM8::Analytics::GetModuleFunction>);
static_assert(std::is_same_v<decltype(FinalizeModule), OKM8::Analytics::FinalizeModuleFunction>);
