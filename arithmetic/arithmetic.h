/// Arithmetic that is defined for every input, because hosts, settings and engines may pass any number: 32-bit integers
/// wrap around (two's complement), and conversions from double behave like the x64 instruction. Any thread.
#pragma once

#include <cstdint>
#include <limits>

namespace arithmetic {

inline std::int32_t WrappedSum(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

inline std::int32_t WrappedDifference(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

inline std::int32_t WrappedProduct(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

/// Returns the absolute value; that of the smallest number is itself.
inline std::int32_t WrappedMagnitude(std::int32_t a) {
    return a < 0 ? WrappedDifference(0, a) : a;
}

/// Truncates toward zero. A value that does not fit and NaN give the smallest number, like the instruction CVTTSD2SI.
inline std::int32_t Truncated(double value) {
    constexpr double limit = 2147483648.0;
    if (value > -limit - 1.0 && value < limit) {
        return static_cast<std::int32_t>(value);
    }
    return std::numeric_limits<std::int32_t>::min();
}

/// Returns size x percent / 100, in pixels: the product wraps at 32 bits, the signed division truncates toward zero.
inline std::int32_t SignedPercentOf(std::uint32_t size, std::int32_t percent) {
    return static_cast<std::int32_t>(size * static_cast<std::uint32_t>(percent)) / 100;
}

/// The same with an unsigned division.
inline std::int32_t UnsignedPercentOf(std::uint32_t size, std::int32_t percent) {
    return static_cast<std::int32_t>(size * static_cast<std::uint32_t>(percent) / 100);
}

}  // namespace arithmetic
