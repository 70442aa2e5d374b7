#include "tools/host/plugin.h"

#include <boost/dll/runtime_symbol_info.hpp>
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

std::string PathOf(const std::string& given, const char* fileName) {
    const std::filesystem::path path =
        given.empty() ? boost::dll::program_location().parent_path() / fileName : std::filesystem::path(given);
    return std::filesystem::absolute(path).string();
}

void RequireFile(const std::string& path, const char* what, const char* option) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
        throw Failure(std::string("there is no ") + what + " at \"" + path + "\"; name one with " + option);
    }
}

// The loader's own words, out of the sentence that they come wrapped in.
std::string LoaderText(const std::exception& error) {
    std::string text = OneLine(error.what());
    const std::string opening = "(dlerror system message: ";
    const std::size_t begin = text.find(opening);
    const std::size_t end = text.rfind("): ");
    if (begin != std::string::npos && end != std::string::npos && end > begin + opening.size()) {
        text = text.substr(begin + opening.size(), end - begin - opening.size());
    }
    return text;
}

void Load(boost::dll::shared_library& library, const std::string& path, const char* what, LoadMode::type mode) {
    try {
        library.load(boost::dll::fs::path(path), mode);
    } catch (const std::exception& error) {
        throw Failure(std::string("cannot load the ") + what + " \"" + path + "\": " + LoaderText(error));
    }
}

template <class Function>
Function* Export(const boost::dll::shared_library& library, const std::string& path, const char* name) {
    if (!library.has(name)) {
        throw Failure("\"" + path + "\" is no detector library: it does not export " + name);
    }
    return &library.get<Function>(name);
}

template <class Interface>
Interface* Query(OKM8::IContract& object, const char* contractName) {
    void* const answer = object.QueryContract(contractName);
    if (answer == nullptr) {
        throw Failure(std::string("the detector does not answer the contract \"") + contractName + "\"");
    }
    return static_cast<Interface*>(answer);
}

}  // namespace

Plugin::Plugin(const PluginPaths& paths)
    : enginePath(PathOf(paths.engine, EngineFileName())), libraryPath(PathOf(paths.library, LibraryFileName())) {
    RequireFile(libraryPath, "library", "--plugin");
    RequireFile(enginePath, "engine", "--engine");
    Load(engine, enginePath, "engine", LoadMode::rtld_now | LoadMode::rtld_global);
    if (!EngineIsBound()) {
        throw Failure("\"" + enginePath + "\" cannot serve as the engine: it does not bear the name " +
                      EngineFileName());
    }
    Load(library, libraryPath, "library", LoadMode::rtld_now);
    namespace Names = OKM8::ExportName;
    initializeModule = Export<OKM8::Analytics::InitializeModuleFunction>(library, libraryPath, Names::InitializeModule);
    getModule = Export<OKM8::Analytics::GetModuleFunction>(library, libraryPath, Names::GetModule);
    finalizeModule = Export<OKM8::Analytics::FinalizeModuleFunction>(library, libraryPath, Names::FinalizeModule);
}

Plugin::~Plugin() {
    if (isInitialized) {
        finalizeModule();
    }
    library.unload();
    engine.unload();
}

void Plugin::Initialize(OKM8::IHost& host) {
    const int32_t result = initializeModule(&host);
    isInitialized = true;
    if (result != 0) {
        throw Failure("the library's InitializeModule answered " + std::to_string(result));
    }
    module = getModule();
    if (module == nullptr) {
        throw Failure("the library's GetModule gave no module");
    }
}

Detector Plugin::CreateDetector(OKM8::Analytics::IDetectorPeer& peer) {
    Detector detector;
    try {
        detector.handle.reset(module->CreateDetector(nullptr, &peer));
    } catch (const std::exception& error) {
        throw Failure(std::string("the library could not make a detector: ") + OneLine(error.what()));
    }
    if (detector.handle == nullptr) {
        throw Failure("the library made no detector");
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
