/// The tracker beside the slow reference: one sequence of its owner's calls through both, and what differs.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "tests/tracker/reference_tracker.h"
#include "tracker/licence_plate.h"

namespace tracker_test {

/// What the owner of a tracker does, one step after another.
struct Step {
    enum class Kind { Frame, LostTimeout, FinishAll };
    Kind kind = Kind::Frame;
    std::uint64_t time = 0;  ///< the frame's, or the new time-out
    std::vector<LicencePlatePtr> readings;
};

struct Sequence {
    std::uint64_t lostTimeout = 3000;
    std::uint64_t maximumAge = std::numeric_limits<std::int32_t>::max();
    std::uint64_t readingsToReport = std::numeric_limits<std::int32_t>::max();
    std::vector<Step> steps;
};

/// The calls of both sinks for one sequence, the real tracker's and the reference's. Calls whose order is free stand in
/// the order of their readings.
struct Comparison {
    std::vector<reference::Call> actual;
    std::vector<reference::Call> expected;

    bool IsEqual() const;

    /// The first call that differs. REQUIRES: IsEqual() is false.
    std::string Difference() const;
};

Comparison Compare(const Sequence& sequence, reference::Coverage& coverage);

/// The sequence as a person reads it, a line for each step and reading.
std::string Described(const Sequence& sequence);

}  // namespace tracker_test
