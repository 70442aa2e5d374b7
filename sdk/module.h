/// The three exports, and the module object behind them. Library side.
#pragma once

#include "sdk/contract.h"
#include "sdk/detector.h"

namespace OKM8 {
namespace PLUGIN {

/// Any plug-in's module object.
struct IPluginModule : IContract {};

}  // namespace PLUGIN

namespace Analytics {

/// The factory for detectors.
struct IModule : PLUGIN::IPluginModule {
    /// Returns a new detector, or null when `detectorPeer` or the module's host object is null; throws std::exception
    /// when it cannot be made, and any exception when the host's GetInterface throws. `reserved` is not read.
    /// The host owns the detector and ends it with Destroy; the peer stays the host's and must outlive the detector.
    /// Owner thread.
    virtual IDetector* CreateDetector(void* reserved, IContract* detectorPeer) = 0;
};

/// The exports, in the order in which a host calls them. Owner thread, one call at a time.
/// InitializeModule: keeps the host object (an IHost) and returns 0, always; throws nothing.
using InitializeModuleFunction = int32_t(void* host);
/// GetModule: the one module object, owned by the library; null before InitializeModule and
/// for a null host; throws std::exception when it cannot be made.
using GetModuleFunction = IModule*();
/// FinalizeModule: ends the module object. Every detector must have been destroyed before.
using FinalizeModuleFunction = void();

}  // namespace Analytics

namespace ExportName {
constexpr char InitializeModule[] = "InitializeModule";
constexpr char GetModule[] = "GetModule";
constexpr char FinalizeModule[] = "FinalizeModule";
}  // namespace ExportName

/// Where the library reads its debug level when it is initialised: a text, 0 for no trace lines. The registry's 32-bit
/// view of the machine's hive counts, else the user's.
namespace DebugLevelValue {
constexpr char Key[] = "SOFTWARE\\Tellumark\\KORA\\DEBUG";
constexpr char Name[] = "DebugLevel";
}  // namespace DebugLevelValue

}  // namespace OKM8
