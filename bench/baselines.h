/// Other libraries' conversions of I420 to blue, green, red in memory. Their matrices differ from ours, so only their
/// speed is comparable.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench {

/// Converts one frame with contiguous planes, of the size for which it was created.
using Conversion = std::function<void(const std::uint8_t* source, std::uint8_t* target)>;

struct Baseline {
    std::string name;
    std::function<Conversion(std::int32_t width, std::int32_t height)> conversionFor;
};

/// Returns all baselines, each on one thread. Throws std::exception if one does not write blue first.
std::vector<Baseline> AllBaselines();

}  // namespace bench
