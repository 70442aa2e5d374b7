/// The command that writes a page about a recorded run.
#pragma once

#include <string>
#include <vector>

#include "tools/host/console.h"
#include "tools/host/options.h"
#include "tools/report/truth.h"

namespace plate_host {

/// Reads the true vehicles of a video; its path may be one of the other system. Throws std::runtime_error.
std::vector<report::TrueVehicle> ReadTruthOf(const std::string& video, const std::string& file);

/// Returns the exit status. Throws std::runtime_error. Main thread.
int Report(const ReportOptions& options, Console& console);

}  // namespace plate_host
