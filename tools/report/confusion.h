/// Compares events with the true vehicles, by the rule of scripts/evaluate-clips: an event belongs to the vehicle in
/// view whose plate is most like its text, if at least half of the characters agree.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/report/plate_events.h"
#include "tools/report/truth.h"

namespace report {

enum class Outcome {
    Right,
    Wrong,      ///< the vehicle's best event has another text
    Twice,      ///< a further event of a vehicle
    OfNone,     ///< an event of no vehicle
    Uncounted,  ///< of a vehicle whose plate a person cannot read completely
    Missed,     ///< a vehicle without event
};

/// An event and its vehicle, or one of them.
struct Match {
    Outcome outcome = Outcome::Right;
    std::optional<std::size_t> event;    ///< its index; none for a missed vehicle
    std::optional<TrueVehicle> vehicle;  ///< with its channel; none for an event of no vehicle
};

struct Confusion {
    std::uint64_t vehicles = 0;  ///< those with a readable plate
    std::uint64_t exact = 0;     ///< vehicles of which an event has the text
    std::uint64_t alike = 0;     ///< the same, with O = 0 = Q and I = 1
    std::uint64_t missed = 0;
    std::uint64_t twice = 0;
    std::uint64_t ofNone = 0;
    std::optional<double> meanDelayMs;  ///< from the first readable frame to the frame of the best event
    std::vector<Match> matches;         ///< by vehicle, then those of no vehicle
};

/// Edit distance as a share of the longer text's length, with look-alikes equal; ? in the plate agrees with every
/// character. Texts are UTF-8.
double DistanceOf(const std::string& plate, const std::string& text);

/// A vehicle without a channel is expected in each of the channels.
Confusion Compare(const std::vector<PlateEvent>& events, const std::vector<TrueVehicle>& truth,
                  const std::vector<int>& channels);

}  // namespace report
