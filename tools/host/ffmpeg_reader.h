/// Videos through FFmpeg's libraries, where the program is built with them.
#pragma once

#include <memory>
#include <string>

#include "tools/host/video_reader.h"

namespace plate_host {

/// Opens whatever the libraries open. Throws Failure; without the libraries, always.
std::unique_ptr<VideoReader> OpenFfmpegVideo(const std::string& address);

/// What the program can open, in words.
const char* FfmpegVersion();

}  // namespace plate_host
