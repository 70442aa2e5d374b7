/// The command that replays a recording.
#pragma once

#include "tools/host/console.h"
#include "tools/host/options.h"

namespace plate_host {

/// Gives a recording's frames and engine results to the library again, prints every difference, and returns the exit
/// status. Throws std::exception. Main thread.
int Replay(const ReplayOptions& options, Console& console);

}  // namespace plate_host
