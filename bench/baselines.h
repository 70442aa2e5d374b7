/// Other libraries' conversions of I420 to blue, green, red in memory. Their matrices differ from ours: only the speed
/// compares.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench {

/// Converts one frame of the size that it was made for, its planes one after another.
using Conversion = std::function<void(const std::uint8_t* source, std::uint8_t* target)>;

struct Baseline {
    std::string name;
    std::function<Conversion(std::int32_t width, std::int32_t height)> conversionFor;
};

/// Each on one thread. Throws std::exception when one does not put blue first.
std::vector<Baseline> AllBaselines();

}  // namespace bench
