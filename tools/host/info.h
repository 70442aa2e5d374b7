/// The command that tells about a library.
#pragma once

#include "tools/host/console.h"
#include "tools/host/options.h"

namespace plate_host {

/// Prints what the library answers to and answers the exit status. Throws Failure. Main thread.
int Info(const InfoOptions& options, Console& console);

}  // namespace plate_host
