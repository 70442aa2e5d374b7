#include "tools/report/crop.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "tools/report/base64.h"

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#include <stb/stb_image_write.h>

namespace report {
namespace {

constexpr double platesPerWidth = 3.0;
constexpr double widthByHeight = 1.5;  // the page's pictures have this shape
constexpr double minimumWidth = 120.0;
constexpr std::uint32_t maximumWidth = 360;  // of the JPEG
constexpr std::size_t usualBytes = 8 * 1024;
constexpr int quality = 75;
constexpr int lowQuality = 50;

struct Rectangle {
    std::uint32_t left = 0;
    std::uint32_t top = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
};

struct Range {
    std::uint32_t first = 0;
    std::uint32_t length = 0;
};

/// A range of that length around the middle, moved into 0 to limit, and shortened if it is longer.
Range RangeAround(double middle, double length, std::uint32_t limit) {
    const double kept = std::min(std::round(length), static_cast<double>(limit));
    const double first = std::clamp(std::round(middle - kept / 2), 0.0, limit - kept);
    return {static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(kept)};
}

Rectangle SurroundingsOf(const PlateBox& plate, const FrameView& frame) {
    const double plateWidth = static_cast<double>(plate.right) - plate.left;
    const double plateHeight = static_cast<double>(plate.bottom) - plate.top;
    const double width = std::max({platesPerWidth * plateWidth, 2 * widthByHeight * plateHeight, minimumWidth});
    const Range columns = RangeAround(plate.left + plateWidth / 2, width, frame.width);
    const Range rows = RangeAround(plate.top + plateHeight / 2, width / widthByHeight, frame.height);
    return {columns.first, rows.first, columns.length, rows.length};
}

/// A plane of the frame.
struct Plane {
    const std::uint8_t* first;
    std::uint32_t width;
    std::uint32_t shift;  ///< 1 for half the frame's resolution

    /// The mean of the samples of an area, which is given in pixels of the frame and is not empty.
    std::int32_t Mean(std::uint32_t left, std::uint32_t top, std::uint32_t right, std::uint32_t bottom) const {
        std::uint64_t sum = 0;
        std::uint64_t count = 0;
        for (std::uint32_t y = top >> shift; y <= (bottom - 1) >> shift; ++y) {
            for (std::uint32_t x = left >> shift; x <= (right - 1) >> shift; ++x, ++count) {
                sum += first[std::size_t{y} * width + x];
            }
        }
        return static_cast<std::int32_t>((sum + count / 2) / count);
    }
};

std::uint8_t ToSample(std::int32_t thousandths) {
    return static_cast<std::uint8_t>(std::clamp((thousandths + 500) / 1000, 0, 255));
}

/// Red, green and blue of the rectangle, scaled down to that size. Luminance and colour differences have the full
/// range.
std::vector<std::uint8_t> ToRgb(const FrameView& frame, const Rectangle& from, std::uint32_t width,
                                std::uint32_t height) {
    const std::size_t luminanceSize = std::size_t{frame.width} * frame.height;
    const bool hasColour = frame.size > luminanceSize;
    const Plane luminances{frame.data, frame.width, 0};
    const Plane blues{frame.data + luminanceSize, frame.width / 2, 1};
    const Plane reds{blues.first + luminanceSize / 4, frame.width / 2, 1};
    std::vector<std::uint8_t> pixels;
    pixels.reserve(std::size_t{3} * width * height);
    const auto place = [](std::uint32_t index, std::uint32_t count, std::uint32_t length) {
        return static_cast<std::uint32_t>(std::uint64_t{index} * length / count);
    };
    for (std::uint32_t y = 0; y < height; ++y) {
        const std::uint32_t top = from.top + place(y, height, from.height);
        const std::uint32_t bottom = from.top + place(y + 1, height, from.height);
        for (std::uint32_t x = 0; x < width; ++x) {
            const std::uint32_t left = from.left + place(x, width, from.width);
            const std::uint32_t right = from.left + place(x + 1, width, from.width);
            const std::int32_t luminance = 1000 * luminances.Mean(left, top, right, bottom);
            const std::int32_t blue = hasColour ? blues.Mean(left, top, right, bottom) - 128 : 0;
            const std::int32_t red = hasColour ? reds.Mean(left, top, right, bottom) - 128 : 0;
            pixels.push_back(ToSample(luminance + 1402 * red));
            pixels.push_back(ToSample(luminance - 344 * blue - 714 * red));
            pixels.push_back(ToSample(luminance + 1772 * blue));
        }
    }
    return pixels;
}

std::string ToJpeg(const std::vector<std::uint8_t>& pixels, std::uint32_t width, std::uint32_t height,
                   int jpegQuality) {
    std::string bytes;
    bytes.reserve(2 * usualBytes);
    const auto append = [](void* context, void* data, int size) {
        static_cast<std::string*>(context)->append(static_cast<const char*>(data), static_cast<std::size_t>(size));
    };
    stbi_write_jpg_to_func(append, &bytes, static_cast<int>(width), static_cast<int>(height), 3, pixels.data(),
                           jpegQuality);
    return bytes;
}

}  // namespace

std::optional<recording::Crop> MakeCrop(const FrameView& frame, const PlateBox& plate) {
    const std::uint64_t luminanceSize = std::uint64_t{frame.width} * frame.height;
    const bool isKnownLayout = frame.size == luminanceSize || frame.size == luminanceSize * 3 / 2;
    const bool isInside = plate.left < plate.right && plate.top < plate.bottom && plate.right > 0 && plate.bottom > 0 &&
                          plate.left < std::int64_t{frame.width} && plate.top < std::int64_t{frame.height};
    if (frame.data == nullptr || luminanceSize == 0 || !isKnownLayout || !isInside) {
        return std::nullopt;
    }
    const Rectangle from = SurroundingsOf(plate, frame);
    const std::uint32_t width = std::min(from.width, maximumWidth);
    const std::uint32_t height =
        std::max(1U, static_cast<std::uint32_t>(std::uint64_t{from.height} * width / from.width));
    const std::vector<std::uint8_t> pixels = ToRgb(frame, from, width, height);
    std::string jpeg = ToJpeg(pixels, width, height, quality);
    if (jpeg.size() > usualBytes) {
        jpeg = ToJpeg(pixels, width, height, lowQuality);
    }
    return recording::Crop{from.left, from.top, from.width, from.height, Base64Of(jpeg)};
}

}  // namespace report
