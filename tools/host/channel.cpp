#include "tools/host/channel.h"

#include <exception>
#include <utility>

namespace plate_host {

Channel::Channel(int number, Plugin& plugin, HostObject& host, EventSink& sink, Console& console, BufferCounts& buffers,
                 HeldFrames* heldFrames, const PlayOptions& options)
    : peer_(number, host, sink, console),
      detector_(plugin.CreateDetector(peer_)),
      number_(number),
      buffers_(buffers),
      heldFrames_(heldFrames),
      singleArea_(options.singleArea) {
    ApplySettings(*detector_.settings, *detector_.errors, options.settings);
}

Channel::~Channel() {
    Abandon();
    Finish();
}

void Channel::Start() {
    thread_ = std::thread(&Channel::Run, this);
}

void Channel::Finish() {
    if (thread_.joinable()) {
        thread_.join();
    }
    detector_.handle.reset();
}

void Channel::Run() {
    while (std::optional<Picture> picture = queue_.Pop()) {
        Handle(std::move(*picture));
    }
    outcome_.frameDoneCalls = frameDone_.CallCount();
    outcome_.wrongFrameDoneCalls = frameDone_.WrongCallCount();
    hasFinished_.store(true);
}

void Channel::Handle(Picture picture) {
    std::string failure;
    try {
        const int32_t code = PassToDetector(*FrameBuffer::Create(std::move(picture), buffers_, heldFrames_, number_));
        if (code != OKM8::ErrorCode::None) {
            const char* const text = detector_.errors->GetErrorMessage();
            failure = "code " + std::to_string(code) + ", \"" + OneLine(text == nullptr ? "" : text) + "\"";
        }
    } catch (const std::exception& error) {
        failure = "an exception left the detector: \"" + OneLine(error.what()) + "\"";
    }
    ++outcome_.frames;
    if (!failure.empty()) {
        ++outcome_.failures[failure];
    }
    ++frameCount_;
}

int32_t Channel::PassToDetector(FrameBuffer& buffer) {
    if (!singleArea_) {
        return detector_.receiver->Receive(&buffer);
    }
    frameDone_.Expect(&buffer);
    const int32_t code = detector_.singleReceiver->ReceiveSingle(&buffer, &*singleArea_, &frameDone_);
    frameDone_.Expect(nullptr);
    return code;
}

}  // namespace plate_host
