/// Runs one sequence of calls through the tracker and the slow reference, and compares the results.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "tests/tracker/reference_tracker.h"
#include "tracker/licence_plate.h"

namespace tracker_test {

/// One call by the owner of a tracker.
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

/// The sink calls of the real tracker and of the reference for one sequence. Calls whose order is unspecified are
/// sorted by their readings.
struct Comparison {
    std::vector<reference::Call> actual;
    std::vector<reference::Call> expected;

    bool IsEqual() const;

    /// Describes the first call that differs. REQUIRES: IsEqual() is false.
    std::string Difference() const;
};

Comparison Compare(const Sequence& sequence, reference::Coverage& coverage);

/// Returns the sequence as readable text, a line for each step and reading.
std::string Describe(const Sequence& sequence);

}  // namespace tracker_test
