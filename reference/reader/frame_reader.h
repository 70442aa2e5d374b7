/// The interface of a reader of plates in one frame.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace plate_reading {

/// In pixels from the frame's top left.
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

/// In pixels; right and bottom are exclusive.
struct Region {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;

    bool operator==(const Region&) const = default;
};

/// In pixels, inclusive.
struct WidthRange {
    int minimum = 0;
    int maximum = 0;

    bool operator==(const WidthRange&) const = default;
};

struct Reading {
    std::string text;              ///< 4 to 12 characters of 0-9 and A-Z
    double confidence = 0;         ///< 0 to 100, of the whole text
    std::array<Point, 4> corners;  ///< top left, bottom left, top right, bottom right of the text's row
    std::string country = {};      ///< ISO 3166-1 alpha-3; empty if the text does not determine it
    bool hasFormat = false;        ///< whether the text has the format of a country
};

/// What to search a frame for.
struct Search {
    std::optional<Region> region = {};      ///< without it the whole frame is searched
    std::optional<WidthRange> widths = {};  ///< without it plates of any width are reported
    std::optional<Region> part = {};        ///< if given, only what is inside both this and the region is searched
    bool isSingle = true;                   ///< no other frame shows the same plates: takes more time to read them
};

/// One thread at a time.
class FrameReader {
  public:
    virtual ~FrameReader() = default;

    /// Returns at most five readings, the best first. Throws std::exception.
    virtual std::vector<Reading> Read(const Picture& picture, const Search& search) = 0;
};

}  // namespace plate_reading
