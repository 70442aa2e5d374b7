/// Reads still pictures into the pixel format of the engine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

namespace plate_evaluation {

/// Blue, green, red, 8 bits each with full range; rows without padding.
struct Picture {
    std::vector<std::uint8_t> pixels;
    int width = 0;
    int height = 0;

    std::size_t Stride() const { return static_cast<std::size_t>(width) * 3; }
};

/// Reads the first picture of a file in any format that FFmpeg decodes. Ignores the orientation that the file
/// specifies. Throws Failure, also for a damaged picture; its text does not name the file. Any thread.
Picture ReadPicture(const std::filesystem::path& file);

}  // namespace plate_evaluation
