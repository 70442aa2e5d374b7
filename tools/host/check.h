/// The command that checks an installation.
#pragma once

#include "tools/host/console.h"
#include "tools/host/options.h"

namespace plate_host {

/// Prints one line for each check, and returns 0, or 1 with a warning, or 2 when something fails. The library and the
/// engine are loaded by a process of its own, so that one that crashes or hangs only fails its check. Throws Failure.
/// Main thread.
int Check(const CheckOptions& options, Console& console);

/// Runs in that process: makes the checks that load the library, and prints their results for the process that
/// started it. Main thread.
int CheckInside(const CheckOptions& options, Console& console);

}  // namespace plate_host
