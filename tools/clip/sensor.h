/// A camera's sensor: blur, brightness and noise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/clip/light.h"

namespace road_clip {

/// Pictures of 4 bytes per pixel: blue, green, red, unused. One thread at a time.
class Sensor {
  public:
    Sensor(int width, int height, std::uint64_t seed);

    /// Copies a picture, slightly blurred by the lens and with the brightness of the light.
    void Expose(const std::uint8_t* from, int fromStride, const Light& light, std::uint8_t* to, int toStride);

    /// The noise depends on the frame's number.
    void AddNoise(std::uint8_t* pixels, int stride, double deviation, std::uint64_t frame) const;

  private:
    std::size_t rowBytes_;
    int height_;
    std::uint64_t seed_;
    std::vector<std::int8_t> noise_;
    std::vector<std::uint16_t> factors_;  ///< of every byte of a row
    std::vector<std::uint16_t> column_;
};

}  // namespace road_clip
