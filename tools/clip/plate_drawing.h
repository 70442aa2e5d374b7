/// Draws plates, and other lettering on vehicles.
#pragma once

#include <cairo.h>

#include <functional>
#include <string_view>

#include "tools/clip/lettering.h"
#include "tools/clip/traffic.h"

namespace road_clip {

/// Projects a point of a flat surface into the picture: metres to the right and up from the surface's origin.
using Surface = std::function<Pixel(double right, double up)>;

/// Draws a line of text centred on the surface's origin, condensed to `width` if it is wider.
void DrawLine(cairo_t* context, Lettering& lettering, const Surface& surface, std::string_view typeface,
              std::string_view text, double height, double width, const Colour& ink);

void DrawPlate(cairo_t* context, Lettering& lettering, const Camera& camera, const Vehicle& vehicle,
               const Place& place);

}  // namespace road_clip
