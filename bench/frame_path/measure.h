/// Measurement of frame times.
#pragma once

#include <cstdint>
#include <functional>

#include "bench/frame_path/channel.h"
#include "bench/idle_engine/traffic.h"

namespace frame_path {

/// The functions of the idle engine.
struct Engine {
    std::function<void(idle_engine::Traffic)> selectTraffic;
    std::function<std::uint8_t*()> lastPixels;
};

struct Effort {
    int batches;            ///< the result is their median
    int batchMilliseconds;  ///< approximate
};

/// Runs all measurements and returns them as one object.
plate_host::Json Measure(Library& library, const Engine& engine, const Effort& effort);

}  // namespace frame_path
