/// A picture in which any plate reader finds two plates.
#pragma once

#include <cstdint>
#include <vector>

namespace reading_faults {

inline constexpr std::uint32_t frameWidth = 480;
inline constexpr std::uint32_t frameHeight = 360;

/// Planar 4:2:0, frameWidth x frameHeight, grey.
std::vector<std::uint8_t> DrawPlateFrame();

}  // namespace reading_faults
