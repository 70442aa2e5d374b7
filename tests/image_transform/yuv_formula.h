/// The conversion as a formula, pixel by pixel, independent of the routines under test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace yuv {

struct Bgr {
    std::uint8_t blue;
    std::uint8_t green;
    std::uint8_t red;

    bool operator==(const Bgr&) const = default;
};

inline std::uint8_t CutToByte(std::int64_t numerator) {
    // Divides by 65536 toward minus infinity.
    std::int64_t quotient = numerator / 65536;
    if (numerator % 65536 < 0) {
        --quotient;
    }
    return static_cast<std::uint8_t>(quotient < 0 ? 0 : quotient > 255 ? 255 : quotient);
}

inline Bgr Formula(int y, int u, int v) {
    const std::int64_t luma = std::int64_t{y} * 65536;
    return {CutToByte(luma + std::int64_t{133169} * (u - 128)),
            CutToByte(luma - std::int64_t{38076} * (v - 128) - std::int64_t{25821} * (u - 128)),
            CutToByte(luma + std::int64_t{74711} * (v - 128))};
}

inline std::vector<std::uint8_t> RandomBytes(std::size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<std::uint8_t> bytes(size);
    for (std::uint8_t& byte : bytes) {
        // Many values at the two ends, where results are clamped.
        const auto value = static_cast<unsigned>(random() % 600);
        byte = static_cast<std::uint8_t>(value < 256 ? value : value < 300 ? 0 : value < 350 ? 255 : random() % 256);
    }
    return bytes;
}

}  // namespace yuv
