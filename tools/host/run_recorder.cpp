#include "tools/host/run_recorder.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <utility>

namespace plate_host {
namespace {

thread_local recording::Frame* currentFrame = nullptr;

}  // namespace

std::vector<RPLATE> WrittenPlates(const RPLATE* plates, int count) {
    std::vector<RPLATE> written(static_cast<std::size_t>(std::clamp(count, 0, engineRecordCount)));
    for (std::size_t index = 0; index < written.size(); ++index) {
        written[index] = plates[index];
        std::memset(written[index].notRead1, 0, sizeof written[index].notRead1);
        std::memset(written[index].notRead2, 0, sizeof written[index].notRead2);
    }
    return written;
}

RunRecorder::RunRecorder(EventSink& next, CropMaker makeCrop) : next_(next), makeCrop_(std::move(makeCrop)) {}

void RunRecorder::AddChannel(const recording::Channel& channel) {
    constexpr bool keepsTracks = false;
    ledgers_.push_back(std::make_unique<ledger::ChannelLedger>(ledger::EarlyReportOf(channel.settings), keepsTracks));
    if (writer_ != nullptr) {
        writer_->Write(channel);
    }
}

RunRecorder::FrameScope::FrameScope(recording::Frame& frame) {
    currentFrame = &frame;
}

RunRecorder::FrameScope::~FrameScope() {
    currentFrame = nullptr;
}

void RunRecorder::Finish(const recording::Frame& frame) {
    ledgers_.at(static_cast<std::size_t>(frame.channel))->Add(frame);
    if (writer_ != nullptr) {
        writer_->Write(frame);
    }
}

void RunRecorder::End(const recording::End& end) {
    if (writer_ != nullptr) {
        writer_->Write(end);
    }
}

ledger::Counts RunRecorder::Counts() const {
    ledger::Counts sum;
    for (const auto& ledger : ledgers_) {
        sum += ledger->CountsSoFar();
    }
    return sum;
}

// An exception of the engine passes through, as it would without this object.
int RunRecorder::Recognise(const EngineFunctions& engine, IMG* image, tagRECT* region, RPLATE* plates, int flags) {
    recording::Frame* const frame = currentFrame;
    if (frame == nullptr) {
        ++callsOutsideFrames_;
        return CallRecognise(engine, nullptr, image, region, plates, flags);
    }
    recording::EngineCall& call = frame->engineCalls.emplace_back();
    call.width = image->width;
    call.height = image->height;
    if (region != nullptr) {
        call.region = *region;
    }
    call.hasThrown = true;
    const auto start = std::chrono::steady_clock::now();
    const int count = CallRecognise(engine, frame, image, region, plates, flags);
    call.microseconds = static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start).count());
    call.hasThrown = false;
    call.count = count;
    call.plates = WrittenPlates(plates, count);
    return count;
}

bool RunRecorder::SetRange(const EngineFunctions& engine, int minimumWidth, int maximumWidth) {
    recording::Frame* const frame = currentFrame;
    if (frame == nullptr) {
        ++callsOutsideFrames_;
        return CallSetRange(engine, nullptr, minimumWidth, maximumWidth);
    }
    const bool isAccepted = CallSetRange(engine, frame, minimumWidth, maximumWidth);
    frame->ranges.push_back({minimumWidth, maximumWidth, isAccepted});
    return isAccepted;
}

int RunRecorder::CallRecognise(const EngineFunctions& engine, const recording::Frame*, IMG* image, tagRECT* region,
                               RPLATE* plates, int flags) {
    return engine.recognise(nullptr, image, region, plates, flags);
}

bool RunRecorder::CallSetRange(const EngineFunctions& engine, const recording::Frame*, int minimumWidth,
                               int maximumWidth) {
    return engine.setRange(minimumWidth, maximumWidth);
}

void RunRecorder::OnEvent(const EventRecord& event) {
    next_.OnEvent(event);
    if (currentFrame != nullptr) {
        currentFrame->events.push_back({ToJson(event), {}});
        if (makeCrop_) {
            currentFrame->events.back().crop = makeCrop_(event);
        }
    }
}

void RunRecorder::OnFailedEvent(const std::string& step) {
    if (currentFrame != nullptr) {
        currentFrame->failedEvents.push_back(step);
    }
    next_.OnFailedEvent(step);
}

}  // namespace plate_host
