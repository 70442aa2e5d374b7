/// The checks of the machine, which do not load the library. Main thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/host/check_result.h"

namespace plate_host {

/// The conversion kernels that this processor runs, and the one that a library of this program's release uses.
CheckResult CheckKernels();

/// The debug level, and the place from which the library reads it.
CheckResult CheckDebugLevel();

/// Servers that run already.
CheckResult CheckOtherServers(const std::vector<std::uint32_t>& servers);

/// The program that the library would start.
CheckResult CheckServerProgram();

/// Servers that were not there before, after the process that loaded the library has ended. `end` says how it ended;
/// empty if it ended well.
CheckResult CheckNothingLeft(const std::vector<std::uint32_t>& before, const std::string& end);

}  // namespace plate_host
