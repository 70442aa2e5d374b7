/// The loaded library, its engine, and its detectors.
#pragma once

#include <boost/dll/shared_library.hpp>
#include <memory>
#include <string>

#include "sdk/detector.h"
#include "sdk/host.h"
#include "sdk/module.h"

namespace plate_host {

class EngineHook;

/// The files to load. An empty path means the file with the default name in this program's folder, and for an engine
/// that is not there the reference engine in its own folder.
struct PluginPaths {
    std::string library;
    std::string engine;
    bool hasNoEngine = false;  ///< none is loaded, because a hook takes its place
};

/// The absolute paths of the files to load.
struct PluginFiles {
    std::string library;
    std::string engine;              ///< empty for no engine
    bool isReferenceEngine = false;  ///< it takes the place of an engine that was not named
};

/// Finds the files; they may not exist. Adds the folder of a reference engine to the search path for programs, because
/// the library starts the engine's server from this program's folder or from the search path. REQUIRES: no other thread
/// reads the environment.
PluginFiles FindPluginFiles(const PluginPaths& paths);

/// Destroys a detector as its contract requires.
struct DestroyDetector {
    void operator()(OKM8::Analytics::IDetector* detector) const { detector->Destroy(); }
};

using DetectorHandle = std::unique_ptr<OKM8::Analytics::IDetector, DestroyDetector>;

/// The interfaces of a detector that the host uses.
struct Detector {
    DetectorHandle handle;
    OKM8::Analytics::IMediaReceiver* receiver = nullptr;
    OKM8::Analytics::IMediaReceiverSingle2* singleReceiver = nullptr;
    OKM8::IAsyncAdjuster* settings = nullptr;
    OKM8::IErrorInfoProvider* errors = nullptr;
};

/// Used on the owner's thread only. Every operation throws Failure when the library or the engine fails.
class Plugin {
  public:
    /// Loads the engine and then the library, which binds to the loaded engine. With a hook, which must outlive the
    /// object, the library binds to the recording engine instead, and its calls go to the hook. Then the engine may
    /// have any name. REQUIRES: a hook if the paths have no engine.
    explicit Plugin(const PluginPaths& paths, EngineHook* hook = nullptr);
    /// True if the recording engine is in its folder beside this program, so that a hook can be used.
    static bool HasRecordingEngine();
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;
    /// Finalizes the module and unloads library and engine. REQUIRES: every detector has been destroyed.
    ~Plugin();

    /// Passes the host object to the library and gets the module object. The host object must outlive the plug-in.
    void Initialize(OKM8::IHost& host);

    /// REQUIRES: Initialize has been called.
    OKM8::Analytics::IModule& Module() { return *module_; }

    /// Creates a detector; the peer must outlive it. REQUIRES: Initialize has been called.
    Detector CreateDetector(OKM8::Analytics::IDetectorPeer& peer);

    const std::string& LibraryPath() const { return files_.library; }
    /// Empty without an engine.
    const std::string& EnginePath() const { return files_.engine; }
    /// True if the reference engine took the place of an engine that was not named.
    bool IsReferenceEngine() const { return files_.isReferenceEngine; }

  private:
    class EngineProxy;

    const PluginFiles files_;
    std::unique_ptr<EngineProxy> proxy_;  // null without a hook
    boost::dll::shared_library engine_;   // unloaded after the library, which is bound to it
    boost::dll::shared_library library_;
    OKM8::Analytics::InitializeModuleFunction* initializeModule_ = nullptr;
    OKM8::Analytics::GetModuleFunction* getModule_ = nullptr;
    OKM8::Analytics::FinalizeModuleFunction* finalizeModule_ = nullptr;
    OKM8::Analytics::IModule* module_ = nullptr;
    bool isInitialized_ = false;
};

}  // namespace plate_host
