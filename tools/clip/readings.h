/// Simulated readings of an engine: mostly right, sometimes with a wrong character, sometimes missing.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/clip/traffic.h"

namespace road_clip {

struct Reading {
    std::size_t vehicle = 0;
    std::string text;
    double confidenceSum = 0;
    std::array<std::array<int, 2>, 4> corners{};
};

/// Every vehicle's plate in each frame.
using PlateTracks = std::vector<PlateViews>;

/// The readings of every frame, in the order of the vehicles.
std::vector<std::vector<Reading>> MakeReadings(std::uint64_t seed, const std::vector<Vehicle>& vehicles,
                                               const PlateTracks& frames);

}  // namespace road_clip
