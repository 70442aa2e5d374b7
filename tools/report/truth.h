/// The vehicles that a person saw in a video.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace report {

struct TrueVehicle {
    std::optional<int> channel;  ///< in every channel without one
    std::string plate;           ///< with ? for characters that cannot be read, or "unreadable"
    std::int64_t firstMs = 0;    ///< when a person can read it
    std::int64_t lastMs = 0;
};

/// Reads a table with tabs between its columns, whose first line names them: plate, first_s, last_s, and optionally
/// channel and clip. With a column clip, only the lines of that clip are returned. Throws std::runtime_error, whose
/// text names the file and the line.
std::vector<TrueVehicle> ReadTruth(const std::filesystem::path& file, const std::string& clip);

}  // namespace report
