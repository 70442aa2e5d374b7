#include "tools/host/plugin.h"

#include <array>
#include <exception>
#include <filesystem>
#include <system_error>

#include "sdk/contract_names.h"
#include "tools/host/console.h"
#include "tools/host/engine_hook.h"
#include "tools/host/failure.h"
#include "tools/host/system.h"
#include "tools/recording_engine/engine_tap.h"

namespace plate_host {
namespace {

namespace LoadMode = boost::dll::load_mode;

// In a package, and where it is built.
constexpr std::array referenceEngineFolders{"reference-engine", "reading"};
constexpr std::array recordingEngineFolders{"recording-engine", "recording"};

// Returns the engine's file in one of the folders beside this program; empty if there is none.
std::filesystem::path EngineIn(const std::array<const char*, 2>& folders) {
    for (const char* const folder : folders) {
        const std::filesystem::path path = ProgramFile().parent_path() / folder / EngineFileName();
        if (IsRegularFile(ToText(path))) {
            return path;
        }
    }
    return {};
}

std::string PathOf(const std::string& given, const char* fileName) {
    const std::filesystem::path path = given.empty() ? ProgramFile().parent_path() / fileName : ToPath(given);
    return ToText(std::filesystem::absolute(path).make_preferred());
}

void RequireFile(const std::string& path, const char* what, const char* option) {
    if (!IsRegularFile(path)) {
        throw Failure(std::string("cannot load the ") + what + " \"" + path + "\": no such file; set its path with " +
                      option);
    }
}

// Also searches the file's own folder for the libraries that it needs, on a system that searches only the program's.
void Load(boost::dll::shared_library& library, const std::string& path, const char* what, LoadMode::type mode) {
    try {
        library.load(ToOpenPath(path), mode | LoadMode::load_with_altered_search_path);
    } catch (const std::system_error& error) {
        throw Failure(std::string("cannot load the ") + what + " \"" + path + "\": " + OneLine(LoadErrorText(error)));
    }
}

template <class Function>
Function* Export(const boost::dll::shared_library& library, const std::string& path, const char* name,
                 const char* what = "a detector library") {
    if (!library.has(name)) {
        throw Failure("\"" + path + "\" is not " + what + ": it does not export " + name);
    }
    return &library.get<Function>(name);
}

template <class Interface>
Interface* Query(OKM8::IContract& object, const char* contractName) {
    void* const result = object.QueryContract(contractName);
    if (result == nullptr) {
        throw Failure(std::string("the detector does not implement the contract \"") + contractName + "\"");
    }
    return static_cast<Interface*>(result);
}

// The functions of an engine that the library is not bound to.
EngineFunctions FunctionsOf(const boost::dll::shared_library& engine, const std::string& path) {
    constexpr char what[] = "an engine";
    return {Export<decltype(::Recognize2)>(engine, path, engine_names::recognise, what),
            Export<decltype(::SetPlateRange)>(engine, path, engine_names::setRange, what)};
}

}  // namespace

PluginFiles FindPluginFiles(const PluginPaths& paths) {
    PluginFiles files{PathOf(paths.library, LibraryFileName()), {}};
    if (paths.hasNoEngine) {
        return files;
    }
    files.engine = PathOf(paths.engine, EngineFileName());
    if (paths.engine.empty() && !IsRegularFile(files.engine)) {
        if (const std::filesystem::path reference = EngineIn(referenceEngineFolders); !reference.empty()) {
            files.engine = ToText(reference);
            files.isReferenceEngine = true;
            AddToSearchPath(reference.parent_path());
        }
    }
    return files;
}

/// The recording engine, which passes the library's calls to the hook.
class Plugin::EngineProxy {
  public:
    explicit EngineProxy(EngineHook& hook)
        : hook_(hook),
          path_(ToText(EngineIn(recordingEngineFolders))),
          tap_{this,
               [](void* proxy, IMG* image, tagRECT* region, RPLATE* plates, int flags) {
                   const auto& self = *static_cast<EngineProxy*>(proxy);
                   return self.hook_.Recognise(self.engine_, image, region, plates, flags);
               },
               [](void* proxy, int minimumWidth, int maximumWidth) {
                   const auto& self = *static_cast<EngineProxy*>(proxy);
                   return self.hook_.SetRange(self.engine_, minimumWidth, maximumWidth);
               }} {
        if (path_.empty()) {
            throw Failure(std::string("cannot load the recording engine: there is no \"") + EngineFileName() +
                          "\" in the folder \"" + recordingEngineFolders.front() + "\" beside this program");
        }
        Load(library_, path_, "recording engine", LoadMode::rtld_now | LoadMode::rtld_global);
        if (LoadedEngine() != library_.native()) {
            throw Failure(std::string("cannot use \"") + path_ + "\": another " + EngineFileName() +
                          " is already loaded");
        }
        setTap_ = Export<decltype(::SetEngineTap)>(library_, path_, engine_names::setTap, "the recording engine");
    }
    EngineProxy(const EngineProxy&) = delete;
    EngineProxy& operator=(const EngineProxy&) = delete;
    ~EngineProxy() { Disconnect(); }

    void Connect(const EngineFunctions& engine, const std::string& enginePath) {
        // A library that is bound to the recording engine shows its functions as its own.
        if (engine.recognise == FunctionsOf(library_, path_).recognise) {
            throw Failure("\"" + enginePath + "\" is not an engine: it uses one");
        }
        engine_ = engine;
        setTap_(&tap_);
    }

    /// From here on the hook is not called. REQUIRES: no frame is under way.
    void Disconnect() { setTap_(nullptr); }

  private:
    EngineHook& hook_;
    EngineFunctions engine_;
    const std::string path_;
    const EngineTap tap_;
    boost::dll::shared_library library_;
    decltype(::SetEngineTap)* setTap_ = nullptr;
};

Plugin::Plugin(const PluginPaths& paths, EngineHook* hook) : files_(FindPluginFiles(paths)) {
    RequireFile(files_.library, "library", "--plugin");
    if (!paths.hasNoEngine) {
        RequireFile(files_.engine, "engine", "--engine");
    }
    if (hook == nullptr) {
        Load(engine_, files_.engine, "engine", LoadMode::rtld_now | LoadMode::rtld_global);
        if (LoadedEngine() == nullptr) {
            throw Failure("\"" + files_.engine + "\" cannot be used as the engine: its name must be " +
                          EngineFileName());
        }
        Load(library_, files_.library, "library", LoadMode::rtld_now);
    } else {
        // The library is loaded while the recording engine is the only module of that name: with two, the system
        // chooses to which one it is bound.
        proxy_ = std::make_unique<EngineProxy>(*hook);
        Load(library_, files_.library, "library", LoadMode::rtld_now);
        EngineFunctions functions;
        if (!paths.hasNoEngine) {
            Load(engine_, files_.engine, "engine", LoadMode::rtld_now | LoadMode::rtld_local);
            functions = FunctionsOf(engine_, files_.engine);
        }
        proxy_->Connect(functions, files_.engine);
    }
    namespace Names = OKM8::ExportName;
    initializeModule_ =
        Export<OKM8::Analytics::InitializeModuleFunction>(library_, files_.library, Names::InitializeModule);
    getModule_ = Export<OKM8::Analytics::GetModuleFunction>(library_, files_.library, Names::GetModule);
    finalizeModule_ = Export<OKM8::Analytics::FinalizeModuleFunction>(library_, files_.library, Names::FinalizeModule);
}

bool Plugin::HasRecordingEngine() {
    return !EngineIn(recordingEngineFolders).empty();
}

Plugin::~Plugin() {
    if (isInitialized_) {
        finalizeModule_();
    }
    if (proxy_ != nullptr) {
        proxy_->Disconnect();
    }
    library_.unload();
    engine_.unload();
}

void Plugin::Initialize(OKM8::IHost& host) {
    const int32_t result = initializeModule_(&host);
    isInitialized_ = true;
    if (result != 0) {
        throw Failure("the library's InitializeModule returned " + std::to_string(result));
    }
    module_ = getModule_();
    if (module_ == nullptr) {
        throw Failure("the library's GetModule returned null");
    }
}

Detector Plugin::CreateDetector(OKM8::Analytics::IDetectorPeer& peer) {
    Detector detector;
    try {
        detector.handle.reset(module_->CreateDetector(nullptr, &peer));
    } catch (const std::exception& error) {
        throw Failure(std::string("the library cannot create a detector: ") + OneLine(error.what()));
    }
    if (detector.handle == nullptr) {
        throw Failure("the library's CreateDetector returned null");
    }
    namespace Names = OKM8::ContractName;
    OKM8::IContract& object = *detector.handle;
    detector.receiver = Query<OKM8::Analytics::IMediaReceiver>(object, Names::IMediaReceiver);
    detector.singleReceiver = Query<OKM8::Analytics::IMediaReceiverSingle2>(object, Names::IMediaReceiverSingle2);
    detector.settings = Query<OKM8::IAsyncAdjuster>(object, Names::IAsyncAdjuster);
    detector.errors = Query<OKM8::IErrorInfoProvider>(object, Names::IErrorInfoProvider);
    return detector;
}

}  // namespace plate_host
