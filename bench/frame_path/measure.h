/// Measurement of frame times.
#pragma once

#include <functional>

#include "bench/frame_path/channel.h"
#include "bench/idle_engine/traffic.h"

namespace frame_path {

using SelectTraffic = std::function<void(idle_engine::Traffic)>;

struct Effort {
    int batches;            ///< the result is their median
    int batchMilliseconds;  ///< approximate
};

/// Runs all measurements and returns them as one object.
plate_host::Json Measure(Library& library, const SelectTraffic& select, const Effort& effort);

}  // namespace frame_path
