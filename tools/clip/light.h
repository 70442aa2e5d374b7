/// The light on the road, from a sunny afternoon over clouds to dusk, and the camera's response to it.
#pragma once

#include "tools/clip/geometry.h"

namespace road_clip {

struct Light {
    double sun = 1;           ///< 0 to 1: how strong shadows are
    double brightness = 1;    ///< factor of the picture
    double haze = 0;          ///< added to the picture, of 255
    double blueness = 0;      ///< 0 to 1
    double noise = 0;         ///< standard deviation of the sensor's noise, of 255
    double exposure = 0.006;  ///< seconds
    double lamps = 0;         ///< 0 to 1: brightness of vehicles' lamps
};

/// The light repeats with each round of traffic.
Light LightAt(double second);

/// The direction of the sun: behind the camera, to the left.
inline constexpr Point towardsSun{-0.45, 0.80, -0.50};

/// The shadow of a tall object beside the road, which falls obliquely across it: the ground between the lines
/// z = near + slope x and z = far + slope x.
struct ShadowBand {
    double near;
    double far;
    double slope;
};
inline constexpr ShadowBand shadowBand{21.2, 24.0, 0.55};

}  // namespace road_clip
