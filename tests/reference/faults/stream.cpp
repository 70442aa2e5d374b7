#include "tests/reference/faults/stream.h"

#include <algorithm>
#include <stdexcept>

#include "sdk/contract_names.h"
#include "tests/reference/faults/plate_frame.h"
#include "tests/support/servers.h"

namespace reading_faults {

namespace {

constexpr std::uint64_t frameMilliseconds = 40;

int Occurrences(const std::string& text, const std::string& wanted) {
    int count = 0;
    for (std::size_t at = text.find(wanted); at != std::string::npos; at = text.find(wanted, at + 1)) {
        ++count;
    }
    return count;
}

}  // namespace

Stream::Stream()
    : plugin((servers::OwnFolder() / VEXLANE_READING_ENGINE).lexically_normal()), pixels(DrawPlateFrame()) {
    folder.SetDebugLevel("1");
    if (plugin.InitializeModule(host.Object()) != 0) {
        throw std::runtime_error("the library cannot be initialised");
    }
    detector = plugin.GetModule()->CreateDetector(nullptr, host.Peer());
    receiver =
        static_cast<OKM8::Analytics::IMediaReceiver*>(detector->QueryContract(OKM8::ContractName::IMediaReceiver));
}

Stream::~Stream() {
    End();
    plugin.FinalizeModule();
}

void Stream::AddNeighbour() {
    neighbour = plugin.GetModule()->CreateDetector(nullptr, host.Peer());
}

void Stream::DestroyNeighbour() {
    if (neighbour != nullptr) {
        neighbour->Destroy();
        neighbour = nullptr;
    }
}

std::string Stream::LastLines() const {
    constexpr std::size_t most = 2000;
    const std::string lines = trace.Text();
    return lines.substr(lines.size() - std::min(lines.size(), most));
}

int Stream::End() {
    DestroyNeighbour();
    if (detector != nullptr) {
        detector->Destroy();
        detector = nullptr;
    }
    return buffers.made - buffers.released;
}

Played Stream::Play() {
    const auto start = std::chrono::steady_clock::now();
    Played played;
    recording_host::BufferOptions options;
    options.width = frameWidth;
    options.height = frameHeight;
    options.pixels = pixels;
    options.timeStamp = time += frameMilliseconds;
    played.answer = receiver->Receive(recording_host::MakeBuffer(buffers, options));
    played.time = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    const std::string lines = trace.Text(traceRead);
    traceRead += lines.size();
    // A poll that restarts the server says one more thing.
    played.restarts = Occurrences(lines, "Restart server launcher") > Occurrences(lines, "Restar server by timeout");
    const std::string wanted = "NumberOfPlate is ";
    const std::size_t found = lines.find(wanted);
    if (found != std::string::npos) {
        played.plates = std::stoi(lines.substr(found + wanted.size()));
    }
    return played;
}

}  // namespace reading_faults
