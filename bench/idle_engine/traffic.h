/// What the engine that reads nothing says that it sees.
#pragma once

namespace idle_engine {

enum class Traffic : int {
    None,      ///< never a plate
    Standing,  ///< ten vehicles that stand, five of them in each frame
};

/// The exported name of the function that chooses, before frames run.
inline constexpr char selectTrafficName[] = "SelectTraffic";
using SelectTrafficFunction = void(int traffic);

}  // namespace idle_engine
