/// The recognition engine under evaluation.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "tools/evaluate/picture.h"
#include "tools/evaluate/scoring.h"

namespace plate_evaluation {

/// Widths of plates in pixels, inclusive.
struct WidthRange {
    int minimum = 0;
    int maximum = 0;

    bool operator==(const WidthRange&) const = default;
};

/// In pixels; right and bottom are outside.
struct Region {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;

    bool operator==(const Region&) const = default;
};

struct Recognition {
    std::vector<Report> reports;  ///< in the engine's order, by falling confidence
    double milliseconds = 0;      ///< spent in the engine
};

/// Any thread.
class PlateEngine {
  public:
    virtual ~PlateEngine() = default;
    /// Returns false when the engine cannot set the range because its server does not run.
    virtual bool SetWidthRange(const WidthRange& range) = 0;
    /// Reads the plates in the whole picture, or in a region of it. Throws Failure when the engine returns an invalid
    /// number of plates.
    virtual Recognition Recognise(Picture& picture, const std::optional<Region>& region) = 0;
};

/// Loads an engine's library. Throws Failure.
std::unique_ptr<PlateEngine> LoadEngine(const std::filesystem::path& library);

}  // namespace plate_evaluation
