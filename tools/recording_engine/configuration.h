/// The recording engine's configuration.
#pragma once

#include <cstdint>
#include <filesystem>
#include <istream>
#include <string>

namespace recording_engine {

struct Configuration {
    std::filesystem::path engine;     ///< the real engine's file
    std::filesystem::path recording;  ///< a file to create
};

/// What the name of a recording may contain.
struct Names {
    std::string time;             ///< for %t
    std::uint32_t processId = 0;  ///< for %p
};

/// Reads lines "key = value"; "#" begins a comment. Relative paths start at `folder`. Throws std::runtime_error.
Configuration ReadConfiguration(std::istream& lines, const std::filesystem::path& folder, const Names& names);

}  // namespace recording_engine
