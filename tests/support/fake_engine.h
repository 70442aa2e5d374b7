/// An engine inside the test program, which implements the engine's functions.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/engine_records.h"

namespace fake_engine {

struct RecognizeCall {
    bool isFirstArgumentNull = false;
    IMG image{};
    std::vector<std::uint8_t> pixels;  ///< a copy of the image's rows
    std::optional<tagRECT> region;
    bool wereRecordsZero = false;
    int flags = -1;
};

struct RangeCall {
    int minimum = 0;
    int maximum = 0;
    friend bool operator==(const RangeCall&, const RangeCall&) = default;
};

/// Clears all calls; afterwards nothing is found and every range is accepted.
void Reset();

/// Stops recording calls, which takes memory, until the next Reset.
void StopRecording();

/// Sets what the engine does. The action is called without a lock held, on the calling thread.
void OnRecognize(std::function<int(const IMG& image, RPLATE* plates)> action);
void OnSetPlateRange(std::function<bool(int minimum, int maximum)> action);

std::vector<RecognizeCall> RecognizeCalls();
std::vector<RangeCall> RangeCalls();

/// A record with that text (up to 16 raw bytes of code page 936), confidence sum and upright rectangle.
RPLATE Plate(const std::string& text, double confidenceSum, int left, int top, int right, int bottom);

}  // namespace fake_engine
