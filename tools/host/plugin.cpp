#include "tools/host/plugin.h"

#include <array>
#include <exception>
#include <filesystem>
#include <system_error>

#include "sdk/contract_names.h"
#include "tools/host/console.h"
#include "tools/host/failure.h"
#include "tools/host/system.h"

namespace plate_host {
namespace {

namespace LoadMode = boost::dll::load_mode;

// In a package, and where it is built.
constexpr std::array referenceEngineFolders{"reference-engine", "reading"};

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
Function* Export(const boost::dll::shared_library& library, const std::string& path, const char* name) {
    if (!library.has(name)) {
        throw Failure("\"" + path + "\" is not a detector library: it does not export " + name);
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

}  // namespace

Plugin::Plugin(const PluginPaths& paths)
    : enginePath_(PathOf(paths.engine, EngineFileName())), libraryPath_(PathOf(paths.library, LibraryFileName())) {
    if (paths.engine.empty() && !IsRegularFile(enginePath_)) {
        UseReferenceEngine();
    }
    RequireFile(libraryPath_, "library", "--plugin");
    RequireFile(enginePath_, "engine", "--engine");
    Load(engine_, enginePath_, "engine", LoadMode::rtld_now | LoadMode::rtld_global);
    if (!IsEngineLoaded()) {
        throw Failure("\"" + enginePath_ + "\" cannot be used as the engine: its name must be " + EngineFileName());
    }
    Load(library_, libraryPath_, "library", LoadMode::rtld_now);
    namespace Names = OKM8::ExportName;
    initializeModule_ =
        Export<OKM8::Analytics::InitializeModuleFunction>(library_, libraryPath_, Names::InitializeModule);
    getModule_ = Export<OKM8::Analytics::GetModuleFunction>(library_, libraryPath_, Names::GetModule);
    finalizeModule_ = Export<OKM8::Analytics::FinalizeModuleFunction>(library_, libraryPath_, Names::FinalizeModule);
}

void Plugin::UseReferenceEngine() {
    const std::filesystem::path programs = ProgramFile().parent_path();
    for (const char* const folder : referenceEngineFolders) {
        if (const std::string path = ToText(programs / folder / EngineFileName()); IsRegularFile(path)) {
            enginePath_ = path;
            isReferenceEngine_ = true;
            // The library starts the engine's server from this program's folder or from the search path.
            AddToSearchPath(programs / folder);
            return;
        }
    }
}

Plugin::~Plugin() {
    if (isInitialized_) {
        finalizeModule_();
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
