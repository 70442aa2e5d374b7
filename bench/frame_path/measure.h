/// How long frames take.
#pragma once

#include <functional>

#include "bench/frame_path/channel.h"
#include "bench/idle_engine/traffic.h"

namespace frame_path {

using SelectTraffic = std::function<void(idle_engine::Traffic)>;

struct Effort {
    int batches;               ///< whose median counts
    int millisecondsOfABatch;  ///< about
};

/// Measures everything and returns it as one object.
plate_host::Json Measure(Library& library, const SelectTraffic& select, const Effort& effort);

}  // namespace frame_path
