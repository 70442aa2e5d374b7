#include "tools/host/channel.h"

#include <chrono>
#include <exception>
#include <utility>

namespace plate_host {

Channel::Channel(int number, Plugin& plugin, HostObject& host, RunRecorder& recorder, Console& console,
                 BufferCounts& buffers, HeldFrames* heldFrames, const PlayOptions& options)
    : peer_(number, host, recorder, console),
      detector_(plugin.CreateDetector(peer_)),
      number_(number),
      buffers_(buffers),
      heldFrames_(heldFrames),
      recorder_(recorder),
      singleArea_(options.singleArea) {
    ApplySettings(*detector_.settings, *detector_.errors, options.settings);
    recording::Channel record;
    record.number = number;
    for (const Setting& setting : options.settings) {
        record.settings.emplace_back(setting.key, setting.text);
    }
    if (singleArea_) {
        record.singleArea = {singleArea_->x, singleArea_->y, singleArea_->width, singleArea_->height};
    }
    recorder_.AddChannel(record);
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
    recording::Frame record = RecordOf(picture);
    std::string failure;
    const auto start = std::chrono::steady_clock::now();
    try {
        const RunRecorder::FrameScope scope(record);
        record.code = PassToDetector(*FrameBuffer::Create(std::move(picture), buffers_, heldFrames_, number_));
        if (record.code != OKM8::ErrorCode::None) {
            const char* const text = detector_.errors->GetErrorMessage();
            record.error = OneLine(text == nullptr ? "" : text);
            failure = "code " + std::to_string(record.code) + ", \"" + record.error + "\"";
        }
    } catch (const std::exception& error) {
        failure = "an exception left the detector: \"" + OneLine(error.what()) + "\"";
        record.code = -1;
        record.error = failure;
    }
    record.microseconds = static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start).count());
    recorder_.Finish(record);
    ++outcome_.frames;
    if (!failure.empty()) {
        ++outcome_.failures[failure];
    }
    ++frameCount_;
}

recording::Frame Channel::RecordOf(const Picture& picture) const {
    recording::Frame record;
    record.channel = number_;
    record.number = outcome_.frames;
    record.timeMs = picture.timeMs;
    record.isAfterVideo = picture.isAfterVideo;
    record.width = picture.width;
    record.height = picture.height;
    record.size = picture.size;
    if (recorder_.IsWriting()) {
        record.checksum = recording::ChecksumOf(picture.bytes.get(), picture.size);
    }
    return record;
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
