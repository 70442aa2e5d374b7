/// Draws plates, and other lettering on vehicles.
#pragma once

#include <cairo.h>

#include <functional>
#include <string_view>

#include "tools/clip/lettering.h"
#include "tools/clip/traffic.h"

namespace road_clip {

/// Where a place on some flat thing is in the picture: metres to the right and up from a place that the thing chooses.
using Surface = std::function<Pixel(double right, double up)>;

/// A line of text around the surface's origin. Not wider than `width`, for which it is squeezed.
void DrawLine(cairo_t* context, Lettering& lettering, const Surface& surface, std::string_view typeface,
              std::string_view text, double height, double width, const Colour& ink);

void DrawPlate(cairo_t* context, Lettering& lettering, const Camera& camera, const Vehicle& vehicle,
               const Place& place);

}  // namespace road_clip
