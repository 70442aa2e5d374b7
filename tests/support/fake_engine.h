/// An engine inside the test program: the program that links it binds the engine's functions to it.
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

/// Forgets all calls; afterwards nothing is found and every range is taken.
void Reset();

/// Until the next Reset calls are no longer written down, which takes memory.
void StopRecording();

/// What the engine does. Called without a lock held, on the calling thread.
void OnRecognize(std::function<int(const IMG& image, RPLATE* plates)> action);
void OnSetPlateRange(std::function<bool(int minimum, int maximum)> action);

std::vector<RecognizeCall> RecognizeCalls();
std::vector<RangeCall> RangeCalls();

/// A record with that text (up to 16 raw bytes of code page 936), confidence sum and upright rectangle.
RPLATE Plate(const std::string& text, double confidenceSum, int left, int top, int right, int bottom);

}  // namespace fake_engine
