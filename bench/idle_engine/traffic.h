/// The traffic that the idle engine reports.
#pragma once

namespace idle_engine {

enum class Traffic : int {
    None,      ///< no plates
    Standing,  ///< ten standing vehicles, five of them in each frame
};

/// The exported function that selects the traffic. Must be called before the first frame.
inline constexpr char selectTrafficName[] = "SelectTraffic";
using SelectTrafficFunction = void(int traffic);

}  // namespace idle_engine
