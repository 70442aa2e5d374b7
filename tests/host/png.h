/// Reads PNG files with the library that draws them.
#pragma once

#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace host_test {

struct Colour {
    int red = 0;
    int green = 0;
    int blue = 0;

    bool operator==(const Colour&) const = default;
};

inline void PrintTo(const Colour& colour, std::ostream* stream) {
    *stream << "(" << colour.red << ", " << colour.green << ", " << colour.blue << ")";
}

struct PngPicture {
    int width = 0;
    int height = 0;
    std::vector<Colour> pixels;

    Colour At(int x, int y) const { return pixels.at(static_cast<std::size_t>(y * width + x)); }
};

/// Throws on failure.
PngPicture ReadPng(const std::string& path);

/// The names of the files in a folder, sorted.
std::vector<std::string> NamesIn(const std::string& folder);

}  // namespace host_test
