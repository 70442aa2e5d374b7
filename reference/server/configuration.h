/// Where the server's configuration comes from.
#pragma once

#include <filesystem>
#include <ostream>

#include "reference/reader/plate_frame_reader.h"

namespace reading_service {

/// The file that the environment variable VEXLANE_READING_CONFIG names, else "plate-Server.conf" in the program's
/// folder; the form is that of plate_reading::ReadConfiguration. Without a file: the defaults. A wrong file, or a named
/// one that is missing, is one line on `errors`, and the defaults.
plate_reading::ReadingOptions LoadConfiguration(const std::filesystem::path& programFolder, std::ostream& errors);

}  // namespace reading_service
