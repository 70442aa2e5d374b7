/// Arithmetic with what comes from the engine and the settings, defined for every input.
#pragma once

#include <cstdint>
#include <limits>

namespace plate_recognition {

inline std::int32_t WrappedDifference(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

inline std::int32_t WrappedProduct(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

/// Toward zero; what does not fit, and what is no number, becomes the smallest number, as the x64 instruction gives.
inline std::int32_t TruncatedToInt32(double value) {
    if (value > -2147483649.0 && value < 2147483648.0) {
        return static_cast<std::int32_t>(value);
    }
    return std::numeric_limits<std::int32_t>::min();
}

/// Percent of a size in pixels: the product wraps at 32 bits, the signed division cuts toward zero.
inline std::int32_t SignedPercentOf(std::uint32_t size, std::int32_t percent) {
    return static_cast<std::int32_t>(size * static_cast<std::uint32_t>(percent)) / 100;
}

/// The same with an unsigned division.
inline std::int32_t UnsignedPercentOf(std::uint32_t size, std::int32_t percent) {
    return static_cast<std::int32_t>(size * static_cast<std::uint32_t>(percent) / 100);
}
}  // namespace plate_recognition
