/// Arithmetic that is defined for every input: 32-bit numbers wrap around, doubles are cut to them as the processor
/// cuts.
#pragma once

#include <cstdint>
#include <limits>

namespace tracking {

inline std::int32_t WrappedSum(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

inline std::int32_t WrappedDifference(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

inline std::int32_t WrappedProduct(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

/// The smallest number stays as it is.
inline std::int32_t WrappedMagnitude(std::int32_t a) {
    return a < 0 ? WrappedDifference(0, a) : a;
}

/// Toward zero; what does not fit, and what is no number, becomes the smallest number, as the x64 instruction gives.
inline std::int32_t Truncated(double value) {
    constexpr double limit = 2147483648.0;
    if (value > -limit - 1.0 && value < limit) {
        return static_cast<std::int32_t>(value);
    }
    return std::numeric_limits<std::int32_t>::min();
}

}  // namespace tracking
