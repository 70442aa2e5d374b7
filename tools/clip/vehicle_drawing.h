/// Draws one vehicle.
#pragma once

#include <cairo.h>

#include <vector>

#include "tools/clip/lettering.h"
#include "tools/clip/light.h"
#include "tools/clip/traffic.h"

namespace road_clip {

/// Draws the shadow of a vehicle on the ground. `strength` is 0 to 1.
void DrawShadow(cairo_t* context, const Camera& camera, const Vehicle& vehicle, const Place& place, double strength);

/// `second` sets the phase of a standing vehicle's hazard lights.
void DrawVehicle(cairo_t* context, Lettering& lettering, const Camera& camera, const Vehicle& vehicle,
                 const Place& place, const Light& light, double second);

/// The lamps that shine towards the camera.
std::vector<Point> LampsOf(const Vehicle& vehicle, const Place& place);

}  // namespace road_clip
