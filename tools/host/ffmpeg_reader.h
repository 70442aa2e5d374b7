/// Reads videos with FFmpeg's libraries, if the program is built with them.
#pragma once

#include <memory>
#include <string>

#include "tools/host/video_reader.h"

namespace plate_host {

/// Opens any video that the libraries support. `keptFile` as for OpenVideo. Throws Failure; without the libraries,
/// always.
std::unique_ptr<VideoReader> OpenFfmpegVideo(const std::string& address, const std::string& keptFile);

/// Describes the formats that the program can open.
const char* SupportedFormats();

}  // namespace plate_host
