/// A run of the engine over all pictures.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/evaluate/engine.h"
#include "tools/evaluate/scoring.h"
#include "tools/evaluate/truth.h"

namespace plate_evaluation {

/// In percent of a picture's width.
struct WidthShare {
    int minimum = 0;
    int maximum = 100;
};

/// In percent of a picture's width and height.
struct RegionShare {
    int left = 0;
    int top = 0;
    int right = 100;
    int bottom = 100;
};

struct EvaluationSettings {
    WidthShare widths;
    std::optional<RegionShare> region;
    int threads = 1;
    std::chrono::milliseconds patience{30000};  ///< how long the engine may refuse a range
};

/// What came of one picture.
struct PictureResult {
    std::string error;  ///< why it could not be read; empty when it could
    std::vector<Report> reports;
    double milliseconds = 0;
    PictureScore score;

    bool IsReadable() const { return error.empty(); }
};

/// Throws Failure when the run must not go on. Called often, by any thread.
using Checkpoint = std::function<void()>;

/// Waits until the engine takes a range, which it does when its server answers. Throws Failure.
void WaitForEngine(PlateEngine& engine, std::chrono::milliseconds patience, const Checkpoint& checkpoint);

/// Gives every picture to the engine and scores what it reports; the results stand in the order of the pictures. An
/// engine may keep one range for all its callers, so only pictures with the same range are in it at a time. Throws
/// Failure.
std::vector<PictureResult> Evaluate(const std::filesystem::path& folder, const std::vector<TruePicture>& pictures,
                                    PlateEngine& engine, const EvaluationSettings& settings,
                                    const Checkpoint& checkpoint);

}  // namespace plate_evaluation
