/// The command that describes a library.
#pragma once

#include "tools/host/console.h"
#include "tools/host/options.h"

namespace plate_host {

/// Prints the library's contracts and settings, and returns the exit status. Throws Failure. Main thread.
int Info(const InfoOptions& options, Console& console);

}  // namespace plate_host
