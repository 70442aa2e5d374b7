/// Draws one vehicle.
#pragma once

#include <cairo.h>

#include "tools/clip/traffic.h"

namespace road_clip {

void DrawShadow(cairo_t* context, const Camera& camera, const Vehicle& vehicle, const Place& place);

/// `second` sets the phase of a standing vehicle's hazard lights.
void DrawVehicle(cairo_t* context, const Camera& camera, const Vehicle& vehicle, const Place& place, double second);

}  // namespace road_clip
