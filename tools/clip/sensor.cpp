#include "tools/clip/sensor.h"

#include <algorithm>
#include <cmath>

#include "tools/clip/random.h"

namespace road_clip {
namespace {

constexpr std::size_t noiseLength = 1U << 18U;
constexpr int noiseDeviation = 16;

const std::uint8_t* RowOf(const std::uint8_t* pixels, int stride, int row) {
    return pixels + static_cast<std::ptrdiff_t>(row) * stride;
}

std::uint8_t* RowOf(std::uint8_t* pixels, int stride, int row) {
    return pixels + static_cast<std::ptrdiff_t>(row) * stride;
}

}  // namespace

Sensor::Sensor(int width, int height, std::uint64_t seed)
    : rowBytes_(static_cast<std::size_t>(width) * 4),
      height_(height),
      seed_(seed),
      noise_(noiseLength + rowBytes_),
      factors_(rowBytes_),
      column_(rowBytes_ + 8) {
    Random random(seed_ ^ 0x5e4504U);
    for (std::int8_t& value : noise_) {
        // Approximates a normal distribution.
        double sum = 0;
        for (int i = 0; i < 6; ++i) {
            sum += random.Between(-1, 1);
        }
        value = static_cast<std::int8_t>(std::clamp(std::lround(sum / std::sqrt(2.0) * noiseDeviation), -127L, 127L));
    }
}

void Sensor::Expose(const std::uint8_t* from, int fromStride, const Light& light, std::uint8_t* to, int toStride) {
    // Weights of six eighths for the middle and one eighth for each neighbour, along both axes: 64 in all.
    const double tint[] = {1 + 0.10 * light.blueness, 1 - 0.02 * light.blueness, 1 - 0.14 * light.blueness, 1};
    for (std::size_t i = 0; i < rowBytes_; ++i) {
        factors_[i] = static_cast<std::uint16_t>(std::lround(65536 / 64 * light.brightness * tint[i % 4]));
    }
    const auto haze = static_cast<std::uint16_t>(std::lround(light.haze));
    const std::size_t length = rowBytes_;
    for (int row = 0; row < height_; ++row) {
        const std::uint8_t* const above = RowOf(from, fromStride, std::max(row - 1, 0));
        const std::uint8_t* const middle = RowOf(from, fromStride, row);
        const std::uint8_t* const below = RowOf(from, fromStride, std::min(row + 1, height_ - 1));
        std::uint16_t* const sums = column_.data() + 4;
        for (std::size_t i = 0; i < length; ++i) {
            sums[i] = static_cast<std::uint16_t>(above[i] + 6 * middle[i] + below[i]);
        }
        std::copy_n(column_.begin() + 4, 4, column_.begin());
        std::copy_n(column_.end() - 8, 4, column_.end() - 4);
        const std::uint16_t* const left = column_.data();
        const std::uint16_t* const factor = factors_.data();
        std::uint8_t* const out = RowOf(to, toStride, row);
        for (std::size_t i = 0; i < length; ++i) {
            const auto sum = static_cast<std::uint16_t>(left[i] + 6 * left[i + 4] + left[i + 8]);
            const auto seen = static_cast<std::uint16_t>((static_cast<std::uint32_t>(sum) * factor[i]) >> 16U);
            const auto bright = static_cast<std::int16_t>(seen + haze);
            out[i] = static_cast<std::uint8_t>(bright > 255 ? 255 : bright);
        }
    }
}

void Sensor::AddNoise(std::uint8_t* pixels, int stride, double deviation, std::uint64_t frame) const {
    Random random(seed_ ^ (frame * 0x9e3779b97f4a7c15U));
    const auto factor = static_cast<std::int16_t>(std::lround(deviation * 256 / noiseDeviation));
    const std::size_t length = rowBytes_;
    for (int row = 0; row < height_; ++row) {
        const std::int8_t* const added = noise_.data() + random.Below(static_cast<int>(noiseLength));
        std::uint8_t* const out = RowOf(pixels, stride, row);
        for (std::size_t i = 0; i < length; ++i) {
            const auto scaled = static_cast<std::int16_t>((added[i] * factor + 128) >> 8);
            const auto sum = static_cast<std::int16_t>(out[i] + scaled);
            const auto floored = static_cast<std::int16_t>(sum < 0 ? 0 : sum);
            out[i] = static_cast<std::uint8_t>(floored > 255 ? 255 : floored);
        }
    }
}

}  // namespace road_clip
