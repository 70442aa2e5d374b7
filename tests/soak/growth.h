/// Whether a long run needs more and more of what the system gives.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace soak {

/// What the process holds at a moment at which nothing is going on.
struct Sample {
    std::uint64_t residentBytes = 0;
    std::uint64_t allocatedBytes = 0;
    std::uint64_t handles = 0;      ///< descriptors on Linux
    std::uint64_t keptHandles = 0;  ///< of these, those that the library keeps by its own rule
    std::uint64_t threads = 0;
    std::uint64_t files = 0;
};

/// Measures this process. REQUIRES: its other threads are idle.
Sample TakeSample();

struct Growth {
    std::string what;
    double value = 0.0;
    double bound = 0.0;

    bool IsWithinBound() const { return value <= bound; }
};

/// Fewer samples tell nothing.
inline constexpr std::size_t fewestSamples = 8;

/// What has grown from the second quarter of the samples to the last; the first quarter is the warm-up.
/// REQUIRES: at least fewestSamples.
std::vector<Growth> GrowthOf(const std::vector<Sample>& samples);

}  // namespace soak
