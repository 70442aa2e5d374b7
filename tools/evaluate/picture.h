/// Still pictures as the engine takes them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

namespace plate_evaluation {

/// Blue, green, red, 8 bits each over their full range; rows stand one after the other without gaps.
struct Picture {
    std::vector<std::uint8_t> pixels;
    int width = 0;
    int height = 0;

    std::size_t Stride() const { return static_cast<std::size_t>(width) * 3; }
};

/// Reads the first picture of a file in any format that FFmpeg decodes. The picture stays as it is stored, whatever the
/// file says of how it is to be turned. A damaged picture counts as none. Throws Failure, whose text does not name the
/// file. Any thread.
Picture ReadPicture(const std::filesystem::path& file);

}  // namespace plate_evaluation
