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
    std::chrono::milliseconds timeout{30000};  ///< how long the engine may refuse a range of widths
};

/// The result of one picture.
struct PictureResult {
    std::string error;  ///< why it could not be read; empty if it was read
    std::vector<Report> reports;
    double milliseconds = 0;
    PictureScore score;

    bool IsReadable() const { return error.empty(); }
};

/// Throws Failure when the run must stop. Called often, by any thread.
using Checkpoint = std::function<void()>;

/// Waits until the engine accepts a range, which it does once its server responds. Throws Failure.
void WaitForEngine(PlateEngine& engine, std::chrono::milliseconds timeout, const Checkpoint& checkpoint);

/// Passes every picture to the engine and scores its reports; the results are in the order of the pictures. An engine
/// may have one range for all its callers, so only pictures with the same range are passed to it at the same time.
/// Throws Failure.
std::vector<PictureResult> Evaluate(const std::filesystem::path& folder, const std::vector<TruePicture>& pictures,
                                    PlateEngine& engine, const EvaluationSettings& settings,
                                    const Checkpoint& checkpoint);

}  // namespace plate_evaluation
