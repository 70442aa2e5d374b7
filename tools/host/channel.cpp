#include "tools/host/channel.h"

#include <exception>
#include <utility>

namespace plate_host {

Channel::Channel(int newNumber, Plugin& plugin, HostObject& host, EventSink& sink, Console& console,
                 BufferLedger& newLedger, FrameShelf* newShelf, const PlayOptions& options)
    : peer(newNumber, host, sink, console),
      detector(plugin.CreateDetector(peer)),
      number(newNumber),
      ledger(newLedger),
      shelf(newShelf),
      singleArea(options.singleArea) {
    ApplySettings(*detector.settings, *detector.errors, options.settings);
}

Channel::~Channel() {
    Abandon();
    Finish();
}

void Channel::Start() {
    thread = std::thread(&Channel::Run, this);
}

void Channel::Finish() {
    if (thread.joinable()) {
        thread.join();
    }
    detector.handle.reset();
}

void Channel::Run() {
    while (std::optional<Picture> picture = queue.Pop()) {
        Handle(std::move(*picture));
    }
    outcome.frameDoneCalls = frameDone.CallCount();
    outcome.wrongFrameDoneCalls = frameDone.WrongCallCount();
    hasFinished.store(true);
}

void Channel::Handle(Picture picture) {
    std::string failure;
    try {
        const int32_t code = HandOver(*FrameBuffer::HandOut(std::move(picture), ledger, shelf, number));
        if (code != OKM8::ErrorCode::None) {
            const char* const text = detector.errors->GetErrorMessage();
            failure = "code " + std::to_string(code) + ", \"" + OneLine(text == nullptr ? "" : text) + "\"";
        }
    } catch (const std::exception& error) {
        failure = "an exception left the detector: \"" + OneLine(error.what()) + "\"";
    }
    ++outcome.frames;
    if (!failure.empty()) {
        ++outcome.failures[failure];
    }
    ++frameCount;
}

int32_t Channel::HandOver(FrameBuffer& buffer) {
    if (!singleArea) {
        return detector.receiver->Receive(&buffer);
    }
    frameDone.Expect(&buffer);
    const int32_t code = detector.singleReceiver->ReceiveSingle(&buffer, &*singleArea, &frameDone);
    frameDone.Expect(nullptr);
    return code;
}

}  // namespace plate_host
