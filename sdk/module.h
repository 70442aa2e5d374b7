/// The three exported functions, and the module object. Library side.
#pragma once

#include "sdk/contract.h"
#include "sdk/detector.h"

namespace OKM8 {
namespace PLUGIN {

/// The module object of any plug-in.
struct IPluginModule : IContract {};

}  // namespace PLUGIN

namespace Analytics {

/// The module object of this library: creates detectors.
struct IModule : PLUGIN::IPluginModule {
    /// Creates the detector of one channel. `detectorPeer` is an IDetectorPeer; `reserved` is not used.
    /// Returns: the detector; null if `detectorPeer` or the host object is null. Throws std::exception if the detector
    /// cannot be created, and any exception that the host's GetInterface throws.
    /// Ownership: the host owns the detector and calls its Destroy; the peer stays the host's and must outlive it.
    /// Thread: owner thread.
    virtual IDetector* CreateDetector(void* reserved, IContract* detectorPeer) = 0;
};

/// InitializeModule, the first call: keeps the host object, an IHost.
/// Returns: 0; cannot fail and throws nothing.
/// Ownership: the host object stays the host's and must be valid until FinalizeModule returns.
/// Thread: owner thread, while no other exported function runs.
using InitializeModuleFunction = int32_t(void* host);

/// GetModule, the second call.
/// Returns: the module object, the same one each time; null before InitializeModule or if the host object is null.
/// Throws std::exception if the object cannot be created.
/// Ownership: the module object belongs to the library and is valid until FinalizeModule is called.
/// Thread: owner thread, while no other exported function runs.
using GetModuleFunction = IModule*();

/// FinalizeModule, the last call before the library is unloaded: deletes the module object.
/// Returns: nothing; cannot fail.
/// Ownership: the module object is invalid afterwards. All detectors must have been destroyed before: unloading the
/// library with a detector returns, but the frames that the detector holds are never released, and a call of it that is
/// under way continues in code that is no longer there. Thread: owner thread, while no other exported function runs.
using FinalizeModuleFunction = void();

}  // namespace Analytics

namespace ExportName {
constexpr char InitializeModule[] = "InitializeModule";
constexpr char GetModule[] = "GetModule";
constexpr char FinalizeModule[] = "FinalizeModule";
}  // namespace ExportName

/// The registry value (a string) from which InitializeModule reads the debug level; trace lines are off if it is "0" or
/// missing. The key is that of HKEY_LOCAL_MACHINE in the 32-bit view or, if the host may not open that with all rights
/// or it does not exist, that of HKEY_CURRENT_USER. If that does not exist either, InitializeModule creates the key in
/// the 64-bit view, where it may.
namespace DebugLevelValue {
constexpr char Key[] = "SOFTWARE\\Tellumark\\KORA\\DEBUG";
constexpr char Name[] = "DebugLevel";
}  // namespace DebugLevelValue

}  // namespace OKM8
