/// The command that plays a video.
#pragma once

#include "tools/host/console.h"
#include "tools/host/options.h"

namespace plate_host {

/// Plays the video through the detectors and returns the exit status. Throws Failure. Main thread.
int Play(const PlayOptions& options, Console& console);

}  // namespace plate_host
