/// The light on the road: a sunny afternoon that clouds over and turns into dusk, and what the camera makes of it.
#pragma once

#include "tools/clip/geometry.h"

namespace road_clip {

struct Light {
    double sun = 1;           ///< 0 to 1: how strong shadows are
    double brightness = 1;    ///< what the picture is multiplied with
    double haze = 0;          ///< what is added to it, of 255
    double blueness = 0;      ///< 0 to 1
    double noise = 0;         ///< standard deviation of the sensor's noise, of 255
    double exposure = 0.006;  ///< seconds
    double lamps = 0;         ///< 0 to 1: how bright vehicles' lamps are against all else
};

/// A day's light passes in the time of one round of traffic.
Light LightAt(double second);

/// Towards the sun: behind the camera's left shoulder.
inline constexpr Point towardsSun{-0.45, 0.80, -0.50};

/// The shadow of something high beside the road, which lies obliquely across it: the ground between two lines
/// z = near + slope x and z = far + slope x.
struct ShadowBand {
    double near;
    double far;
    double slope;
};
inline constexpr ShadowBand shadowBand{21.2, 24.0, 0.55};

}  // namespace road_clip
