#include "tests/support/fake_engine.h"

#include <algorithm>
#include <mutex>

#include "tests/support/allocation_count.h"

namespace fake_engine {

namespace {

struct State {
    std::mutex mutex;
    std::function<int(const IMG&, RPLATE*)> onRecognize;
    std::function<bool(int, int)> onSetPlateRange;
    std::vector<RecognizeCall> recognizeCalls;
    std::vector<RangeCall> rangeCalls;
    bool isRecording = true;
};

State& TheState() {
    static State state;
    return state;
}

}  // namespace

void Reset() {
    State& state = TheState();
    const std::lock_guard lock(state.mutex);
    state.onRecognize = nullptr;
    state.onSetPlateRange = nullptr;
    state.recognizeCalls.clear();
    state.rangeCalls.clear();
    state.isRecording = true;
}

void StopRecording() {
    const std::lock_guard lock(TheState().mutex);
    TheState().isRecording = false;
}

void OnRecognize(std::function<int(const IMG&, RPLATE*)> action) {
    const std::lock_guard lock(TheState().mutex);
    TheState().onRecognize = std::move(action);
}

void OnSetPlateRange(std::function<bool(int, int)> action) {
    const std::lock_guard lock(TheState().mutex);
    TheState().onSetPlateRange = std::move(action);
}

std::vector<RecognizeCall> RecognizeCalls() {
    const std::lock_guard lock(TheState().mutex);
    return TheState().recognizeCalls;
}

std::vector<RangeCall> RangeCalls() {
    const std::lock_guard lock(TheState().mutex);
    return TheState().rangeCalls;
}

RPLATE Plate(const std::string& text, double confidenceSum, int left, int top, int right, int bottom) {
    RPLATE plate = {};
    std::copy_n(text.begin(), std::min(text.size(), sizeof plate.text), plate.text);
    SetConfidenceSum(plate, confidenceSum);
    plate.corner1 = {left, top};
    plate.corner2 = {left, bottom};
    plate.corner3 = {right, top};
    plate.corner4 = {right, bottom};
    return plate;
}

}  // namespace fake_engine

int Recognize2(YUV420_IMG* unused, IMG* image, tagRECT* region, RPLATE* plates, int flags) {
    const allocation_count::WithoutFailure own;
    fake_engine::State& state = fake_engine::TheState();
    std::function<int(const IMG&, RPLATE*)> action;
    bool isRecording = false;
    {
        const std::lock_guard lock(state.mutex);
        action = state.onRecognize;
        isRecording = state.isRecording;
    }
    if (isRecording) {
        fake_engine::RecognizeCall call;
        call.isFirstArgumentNull = unused == nullptr;
        call.image = *image;
        call.pixels.assign(image->pixels, image->pixels + std::size_t{image->rowStride} * image->height);
        if (region != nullptr) {
            call.region = *region;
        }
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(plates);
        call.wereRecordsZero =
            std::all_of(bytes, bytes + engineRecordCount * sizeof(RPLATE), [](std::uint8_t byte) { return byte == 0; });
        call.flags = flags;
        const std::lock_guard lock(state.mutex);
        state.recognizeCalls.push_back(std::move(call));
    }
    return action ? action(*image, plates) : 0;
}

bool SetPlateRange(int minimumWidth, int maximumWidth) {
    const allocation_count::WithoutFailure own;
    fake_engine::State& state = fake_engine::TheState();
    std::function<bool(int, int)> action;
    {
        const std::lock_guard lock(state.mutex);
        if (state.isRecording) {
            state.rangeCalls.push_back({minimumWidth, maximumWidth});
        }
        action = state.onSetPlateRange;
    }
    return action ? action(minimumWidth, maximumWidth) : true;
}
