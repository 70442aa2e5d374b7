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
    : plugin_((servers::OwnFolder() / VEXLANE_READING_ENGINE).lexically_normal()), pixels_(DrawPlateFrame()) {
    folder_.SetDebugLevel("1");
    if (plugin_.InitializeModule(host_.Object()) != 0) {
        throw std::runtime_error("the library cannot be initialised");
    }
    detector_ = plugin_.GetModule()->CreateDetector(nullptr, host_.Peer());
    receiver_ =
        static_cast<OKM8::Analytics::IMediaReceiver*>(detector_->QueryContract(OKM8::ContractName::IMediaReceiver));
}

Stream::~Stream() {
    End();
    plugin_.FinalizeModule();
}

void Stream::AddNeighbour() {
    neighbour_ = plugin_.GetModule()->CreateDetector(nullptr, host_.Peer());
}

void Stream::DestroyNeighbour() {
    if (neighbour_ != nullptr) {
        neighbour_->Destroy();
        neighbour_ = nullptr;
    }
}

std::string Stream::LastLines() const {
    constexpr std::size_t most = 2000;
    const std::string lines = trace_.Text();
    return lines.substr(lines.size() - std::min(lines.size(), most));
}

int Stream::End() {
    DestroyNeighbour();
    if (detector_ != nullptr) {
        detector_->Destroy();
        detector_ = nullptr;
    }
    return buffers_.made - buffers_.released;
}

Played Stream::Play() {
    const auto start = std::chrono::steady_clock::now();
    Played played;
    recording_host::BufferOptions options;
    options.width = frameWidth;
    options.height = frameHeight;
    options.pixels = pixels_;
    options.timeStamp = time_ += frameMilliseconds;
    played.status = receiver_->Receive(recording_host::MakeBuffer(buffers_, options));
    played.time = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    const std::string lines = trace_.Text(traceRead_);
    traceRead_ += lines.size();
    // A poll that restarts the server logs one more line.
    played.restarts = Occurrences(lines, "Restart server launcher") > Occurrences(lines, "Restar server by timeout");
    const std::string wanted = "NumberOfPlate is ";
    const std::size_t found = lines.find(wanted);
    if (found != std::string::npos) {
        played.plates = std::stoi(lines.substr(found + wanted.size()));
    }
    return played;
}

}  // namespace reading_faults
