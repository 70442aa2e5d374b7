#include "tools/recording_engine/call_recorder.h"

#include <algorithm>
#include <utility>

namespace recording_engine {

using std::chrono::steady_clock;

namespace {

// Not an object, whose destructor would run at the end of a thread, when the library is perhaps gone.
thread_local CallRecorder::Call* callOfThread = nullptr;

std::filesystem::path WithFolder(const std::filesystem::path& file) {
    std::error_code ignored;  // opening the file fails then, too
    std::filesystem::create_directories(file.parent_path(), ignored);
    return file;
}

// 0 if it is unknown.
std::uint64_t ChecksumOf(const IMG& image) {
    const std::size_t rowSize = std::size_t{image.width} * image.bytesPerPixel;
    if (image.pixels == nullptr || image.rowStride < rowSize) {
        return 0;
    }
    if (image.rowStride == rowSize) {
        return recording::ChecksumOf(image.pixels, rowSize * image.height);
    }
    std::vector<std::uint8_t> rows;
    rows.reserve(rowSize * image.height);
    for (std::size_t row = 0; row < image.height; ++row) {
        const std::uint8_t* const first = image.pixels + row * image.rowStride;
        rows.insert(rows.end(), first, first + rowSize);
    }
    return recording::ChecksumOf(rows.data(), rows.size());
}

}  // namespace

CallRecorder::CallRecorder(const std::filesystem::path& file, const recording::Run& run,
                           std::function<void(const std::string&)> warn)
    : writer_(WithFolder(file), run), warn_(std::move(warn)) {}

CallRecorder::Call& CallRecorder::CallOfThread() {
    if (callOfThread == nullptr) {
        auto call = std::make_unique<Call>();
        const std::lock_guard lock(mutex_);
        call->frame.channel = static_cast<int>(calls_.size());
        calls_.push_back(std::move(call));
        callOfThread = calls_.back().get();
        writer_.Write(recording::Channel{.number = callOfThread->frame.channel, .settings = {}, .singleArea = {}});
    }
    return *callOfThread;
}

CallRecorder::Call* CallRecorder::Begin(const IMG* image, const tagRECT* region) noexcept {
    if (hasFailed_) {
        return nullptr;
    }
    try {
        Call& call = CallOfThread();
        if (call.isOpen) {
            EndThrown(&call);
        }
        recording::Frame& frame = call.frame;
        frame.number = call.recognitions++;
        frame.engineCalls.resize(1);
        recording::EngineCall& engineCall = frame.engineCalls[0];
        if (image != nullptr) {
            frame.width = engineCall.width = image->width;
            frame.height = engineCall.height = image->height;
            if (image->pixels != nullptr) {
                frame.size = image->width * image->height * image->bytesPerPixel;
                frame.checksum = ChecksumOf(*image);
            }
        }
        if (region != nullptr) {
            engineCall.region = *region;
        }
        call.isOpen = true;
        call.start = steady_clock::now();
        frame.timeMs = static_cast<std::uint64_t>(
            std::chrono::duration_cast<std::chrono::milliseconds>(call.start - start_).count());
        return &call;
    } catch (...) {
        return nullptr;
    }
}

void CallRecorder::End(Call* call, int count, const RPLATE* plates) noexcept {
    if (call == nullptr) {
        return;
    }
    recording::Frame& frame = call->frame;
    recording::EngineCall& engineCall = frame.engineCalls[0];
    frame.microseconds = engineCall.microseconds = static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now() - call->start).count());
    engineCall.count = count;
    try {
        if (plates != nullptr && count > 0) {
            engineCall.plates.assign(plates, plates + std::min(count, engineRecordCount));
        }
        Write(*call);
    } catch (...) {
        hasFailed_ = true;
    }
}

void CallRecorder::EndThrown(Call* call) noexcept {
    if (call == nullptr) {
        return;
    }
    try {
        call->frame.engineCalls[0].hasThrown = true;
        Write(*call);
    } catch (...) {
        hasFailed_ = true;
    }
}

void CallRecorder::AddRange(int minimumWidth, int maximumWidth, bool isAccepted) noexcept {
    if (hasFailed_) {
        return;
    }
    try {
        Call& call = CallOfThread();
        if (call.isOpen) {
            EndThrown(&call);
        }
        call.frame.ranges.push_back({minimumWidth, maximumWidth, isAccepted});
    } catch (...) {
        hasFailed_ = true;
    }
}

void CallRecorder::Write(Call& call) {
    call.isOpen = false;
    recording::Frame next;
    next.channel = call.frame.channel;
    const recording::Frame frame = std::exchange(call.frame, std::move(next));
    writer_.Write(frame);
    if (const std::string error = writer_.Error(); !error.empty() && !hasFailed_.exchange(true)) {
        warn_(error);
    }
}

}  // namespace recording_engine
