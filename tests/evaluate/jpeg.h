/// JPEG files, encoded and decoded with FFmpeg's libraries.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace evaluate_test {

/// A picture as in a JPEG file: a luma plane and two chroma planes, the latter possibly of half the size.
struct YuvPicture {
    int width = 0;
    int height = 0;
    bool halfWidth = false;
    bool halfHeight = false;
    std::array<std::vector<std::uint8_t>, 3> planes;  ///< rows without gaps

    std::pair<int, int> SizeOf(int plane) const {
        return {plane != 0 && halfWidth ? (width + 1) / 2 : width,
                plane != 0 && halfHeight ? (height + 1) / 2 : height};
    }
};

/// Calls `sample` for every sample of every plane.
YuvPicture MakeYuv(int width, int height, bool halfWidth, bool halfHeight,
                   const std::function<std::uint8_t(int plane, int x, int y)>& sample);

/// Encodes a picture in the best quality. Throws on failure.
std::string Jpeg(const YuvPicture& picture);

/// Decodes a file; the result differs slightly from the encoded picture. Throws on failure.
YuvPicture DecodeJpeg(const std::string& file);

}  // namespace evaluate_test
