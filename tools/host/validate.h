/// The command that checks a library against its contract.
#pragma once

#include "tools/host/console.h"
#include "tools/host/options.h"

namespace plate_host {

/// Runs the cases, prints their results and returns the exit status. Throws std::exception. Main thread.
int Validate(const ValidateOptions& options, Console& console);

}  // namespace plate_host
