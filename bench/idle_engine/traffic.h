/// The traffic that the idle engine reports.
#pragma once

#include <cstdint>

namespace idle_engine {

enum class Traffic : int {
    None,      ///< no plates
    Standing,  ///< ten standing vehicles, five of them in each frame
};

/// The exported function that selects the traffic. Must be called before the first frame.
inline constexpr char selectTrafficName[] = "SelectTraffic";
using SelectTrafficFunction = void(int traffic);

/// The exported function that returns the pixels of the last frame that this thread gave to the engine, or null.
inline constexpr char lastPixelsName[] = "LastPixels";
using LastPixelsFunction = std::uint8_t*();

}  // namespace idle_engine
