/// What the page shows, as data for its script.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/recording/recording.h"
#include "tools/report/report.h"

namespace report {

/// Frames of successive times, which a plot shows as one point.
struct PlotPoint {
    std::uint64_t frames = 0;
    std::uint64_t microseconds = 0;  ///< in the detector, the engine included
    std::uint64_t engineCalls = 0;
    std::uint64_t engineMicroseconds = 0;
    std::uint64_t longestMicroseconds = 0;  ///< of an engine call

    friend bool operator==(const PlotPoint&, const PlotPoint&) = default;
};

/// Points of the same duration.
struct Plot {
    std::uint64_t firstMs = 0;
    std::uint64_t stepMs = 1;
    std::vector<PlotPoint> points;
};

inline constexpr std::uint64_t maximumPlotPoints = 500;

Plot PlotOf(const std::vector<recording::Frame>& frames);

struct PageData {
    recording::Json value;
    std::vector<std::string_view> pictures;  ///< in base64, views of the recording; the events have their indices
};

PageData PageDataOf(const recording::Recording& recording, const ReportExtras& extras);

}  // namespace report
