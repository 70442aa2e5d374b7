/// Pictures and lists of a folder to evaluate.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace evaluate_test {

using Pixel = std::array<std::uint8_t, 3>;  ///< red, green, blue

/// A colour of its own for every place of a picture, and another picture for every number.
inline Pixel PixelAt(int x, int y, int number) {
    return {static_cast<std::uint8_t>(x * 7 + number * 31), static_cast<std::uint8_t>(y * 11 + x),
            static_cast<std::uint8_t>(255 - x - number)};
}

/// A picture as a file of the simplest format.
inline std::string Ppm(int width, int height, int number) {
    std::string file = "P6\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n";
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            for (const std::uint8_t value : PixelAt(x, y, number)) {
                file.push_back(static_cast<char>(value));
            }
        }
    }
    return file;
}

/// The same picture as an engine is to see it: blue, green, red, without gaps.
inline std::vector<std::uint8_t> BgrPixels(int width, int height, int number) {
    std::vector<std::uint8_t> bytes;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const Pixel pixel = PixelAt(x, y, number);
            bytes.insert(bytes.end(), {pixel[2], pixel[1], pixel[0]});
        }
    }
    return bytes;
}

inline const std::string truthHeader = "file\tx\ty\twidth\theight\tplate\n";

}  // namespace evaluate_test
