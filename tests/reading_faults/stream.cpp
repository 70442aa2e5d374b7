#include "tests/reading_faults/stream.h"

#include <stdexcept>

#include "sdk/contract_names.h"
#include "tests/support/servers.h"

namespace reading_faults {

namespace {

constexpr std::uint64_t frameMilliseconds = 40;

}  // namespace

Stream::Stream() : plugin((servers::OwnFolder() / VEXLANE_READING_ENGINE).lexically_normal()) {
    folder.SetDebugLevel("1");
    if (plugin.InitializeModule(host.Object()) != 0) {
        throw std::runtime_error("the library cannot be initialised");
    }
    detector = plugin.GetModule()->CreateDetector(nullptr, host.Peer());
    receiver =
        static_cast<OKM8::Analytics::IMediaReceiver*>(detector->QueryContract(OKM8::ContractName::IMediaReceiver));
}

Stream::~Stream() {
    detector->Destroy();
    plugin.FinalizeModule();
}

Played Stream::Play() {
    const auto start = std::chrono::steady_clock::now();
    Played played;
    played.answer = receiver->Receive(recording_host::MakeFrame(buffers, 320, 240, time += frameMilliseconds));
    played.time = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    const std::string lines = trace.Text(traceRead);
    traceRead += lines.size();
    played.restarts = lines.find("): Restart server launcher") != std::string::npos;
    const std::string wanted = "NumberOfPlate is ";
    const std::size_t found = lines.find(wanted);
    if (found != std::string::npos) {
        played.plates = std::stoi(lines.substr(found + wanted.size()));
    }
    return played;
}

}  // namespace reading_faults
