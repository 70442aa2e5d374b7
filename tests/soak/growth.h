/// Detects growing use of system resources in a long run.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace soak {

/// The resources of the process while it is idle.
struct Sample {
    std::uint64_t residentBytes = 0;
    std::uint64_t allocatedBytes = 0;
    std::uint64_t handles = 0;      ///< descriptors on Linux
    std::uint64_t keptHandles = 0;  ///< of these, those that the library keeps open by design
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

/// The minimum for a meaningful result.
inline constexpr std::size_t minSamples = 8;

/// Returns the growth from the second quarter of the samples to the last one; the first quarter is the warm-up.
/// REQUIRES: at least minSamples.
std::vector<Growth> GrowthOf(const std::vector<Sample>& samples);

}  // namespace soak
