/// Pictures and lists for a folder to evaluate.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace evaluate_test {

using Pixel = std::array<std::uint8_t, 3>;  ///< red, green, blue

/// Returns a colour that depends on the position and on the picture's number.
inline Pixel PixelAt(int x, int y, int number) {
    return {static_cast<std::uint8_t>(x * 7 + number * 31), static_cast<std::uint8_t>(y * 11 + x),
            static_cast<std::uint8_t>(255 - x - number)};
}

/// Returns a picture as a PPM file.
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

/// Returns the same picture as the engine must receive it: blue, green, red, without padding.
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
