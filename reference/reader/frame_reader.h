/// What reads the plates of one picture.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace plate_reading {

/// In pixels from the picture's top left.
struct Point {
    int x = 0;
    int y = 0;
};

/// Blue, green, red, 8 bits each, rows top down; not owned.
struct Picture {
    const std::uint8_t* pixels = nullptr;
    int width = 0;           ///< pixels
    int height = 0;          ///< rows
    std::size_t stride = 0;  ///< bytes from one row to the next, at least width * 3
};

/// In pixels; right and bottom lie outside.
struct Region {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;
};

/// In pixels, both included.
struct WidthRange {
    int minimum = 0;
    int maximum = 0;
};

struct Reading {
    std::string text;              ///< 4 to 9 characters of 0-9 and A-Z
    double confidence = 0;         ///< 0 to 100, of the whole text
    std::array<Point, 4> corners;  ///< top left, bottom left, top right, bottom right of the text's row
};

/// Reads one picture at a time, on one thread at a time.
class FrameReader {
  public:
    virtual ~FrameReader() = default;

    /// The surest readings first, at most five. Without a region the whole picture is searched, without a range of
    /// widths any width is reported. Throws std::exception.
    virtual std::vector<Reading> Read(const Picture& picture, const std::optional<Region>& region,
                                      const std::optional<WidthRange>& widths) = 0;
};

}  // namespace plate_reading
