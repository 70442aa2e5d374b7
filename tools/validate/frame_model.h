/// What a detector must say about a frame.
#pragma once

#include <cstdint>
#include <limits>
#include <string>

namespace validate {

inline constexpr char zeroSize[] = "Zero image size is not acceptable";
inline constexpr char wrongFormat[] = "Wrong image format";

/// The error text of a frame; empty when it is accepted.
inline std::string ErrorOfFrame(std::uint32_t width, std::uint32_t height, std::uint32_t size) {
    if (width == 0 || height == 0 || size == 0) {
        return zeroSize;
    }
    const std::uint64_t pixels = std::uint64_t{width} * height;
    if (pixels > std::numeric_limits<std::uint32_t>::max() / 3) {
        return wrongFormat;
    }
    if (size == pixels) {
        return {};
    }
    const bool isColour = size == 2 * pixels || size == 6 * pixels / 4;
    return isColour && width % 2 == 0 && height % 2 == 0 ? "" : wrongFormat;
}

}  // namespace validate
