#pragma once

#include "tests/support/servers.h"

namespace reading_faults {

/// Stops a process, and comes back when it does nothing any more. Throws std::runtime_error.
void StopProcess(servers::ProcessId process);

}  // namespace reading_faults
