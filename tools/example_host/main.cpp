/// A host that sends the frames of a file through the library and prints the text of each plate.

#include <cstdio>
#include <cstdlib>
#include <exception>

#include <sdk/module.h>
#include <sdk/setting_keys.h>

#include "host_objects.h"
#include "shared_library.h"

namespace example_host {

template <class Interface>
Interface* Query(IDetector* detector, const char* contractName) {
    return static_cast<Interface*>(detector->QueryContract(contractName));
}

void Play(void* library, Video& video) {
    Host host;          // log, and lists for events
    DetectorPeer peer;  // prints the events
    Function<InitializeModuleFunction>(library, ExportName::InitializeModule)(&host);
    IModule* const module = Function<GetModuleFunction>(library, ExportName::GetModule)();
    IDetector* const detector = module->CreateDetector(nullptr, &peer);  // one for each camera

    auto* const settings = Query<IAsyncAdjuster>(detector, ContractName::IAsyncAdjuster);
    settings->SetIntValue(SettingKey::ZoneWidth, 40);  // the widest plate, percent of the frame's width
    settings->ApplySettings();

    auto* const receiver = Query<IMediaReceiver>(detector, ContractName::IMediaReceiver);
    auto* const errors = Query<IErrorInfoProvider>(detector, ContractName::IErrorInfoProvider);
    while (Frame* const frame = video.Next()) {
        if (receiver->Receive(frame) != ErrorCode::None) {  // the detector owns the frame now
            std::fprintf(stderr, "%s\n", errors->GetErrorMessage());
        }
    }
    detector->Destroy();
    Function<FinalizeModuleFunction>(library, ExportName::FinalizeModule)();
}

}  // namespace example_host

int main(int argc, char** argv) {
    const uint32_t width = argc == 7 ? uint32_t(std::atoi(argv[4])) : 0;
    const uint32_t height = argc == 7 ? uint32_t(std::atoi(argv[5])) : 0;
    const uint32_t rate = argc == 7 ? uint32_t(std::atoi(argv[6])) : 0;
    if (width == 0 || height == 0 || rate == 0) {
        std::fprintf(stderr, "usage: example-host LIBRARY ENGINE FRAMES WIDTH HEIGHT FRAMES_PER_SECOND\n");
        return 2;
    }
    try {
        example_host::Video video(argv[3], width, height, rate);
        example_host::LoadSharedLibrary(argv[2]);  // the library then uses this engine
        example_host::Play(example_host::LoadSharedLibrary(argv[1]), video);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "example-host: %s\n", error.what());
        return 1;
    }
}
