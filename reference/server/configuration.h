/// Loads the server's configuration.
#pragma once

#include <filesystem>
#include <ostream>

#include "reference/reader/plate_frame_reader.h"

namespace reading_service {

/// Reads the file named by the environment variable VEXLANE_READING_CONFIG, else "plate-Server.conf" in the program's
/// folder, with plate_reading::ReadConfiguration. Returns the defaults when there is no file. If the file is invalid,
/// or a named file is missing, writes one line to `errors` and returns the defaults.
plate_reading::ReadingOptions LoadConfiguration(const std::filesystem::path& programFolder, std::ostream& errors);

}  // namespace reading_service
