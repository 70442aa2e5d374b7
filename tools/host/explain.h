/// The commands that look at one vehicle of a recording.
#pragma once

#include "tools/host/console.h"
#include "tools/host/options.h"

namespace plate_host {

/// Tells the life of a vehicle, or why there is none; returns the exit status. Throws std::exception. Main thread.
int Explain(const ExplainOptions& options, Console& console);

/// Writes a recording of the frames in which a vehicle was followed, to be replayed as a test; returns the exit status.
/// Throws std::exception. Main thread.
int Cut(const ExplainOptions& options, Console& console);

}  // namespace plate_host
