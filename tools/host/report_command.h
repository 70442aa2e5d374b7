/// The command that writes a page about a recorded run.
#pragma once

#include "tools/host/console.h"
#include "tools/host/options.h"

namespace plate_host {

/// Returns the exit status. Throws std::runtime_error. Main thread.
int Report(const ReportOptions& options, Console& console);

}  // namespace plate_host
