#include "tools/clip/plate_drawing.h"

#include <algorithm>
#include <utility>

namespace road_clip {
namespace {

constexpr Colour frame{0.10, 0.10, 0.11};
constexpr Colour bandBlue{0.10, 0.20, 0.55};
constexpr Colour dust{0.42, 0.38, 0.32};

Colour Mixed(const Colour& a, const Colour& b, double part) {
    return {a.red + (b.red - a.red) * part, a.green + (b.green - a.green) * part, a.blue + (b.blue - a.blue) * part};
}

void SetColour(cairo_t* context, const Colour& colour) {
    cairo_set_source_rgb(context, colour.red, colour.green, colour.blue);
}

void Fill(cairo_t* context, const Surface& surface, double left, double bottom, double right, double top,
          const Colour& colour) {
    cairo_new_path(context);
    for (const auto& [x, y] : {std::pair{left, top}, {right, top}, {right, bottom}, {left, bottom}}) {
        const Pixel pixel = surface(x, y);
        cairo_line_to(context, pixel.x, pixel.y);
    }
    cairo_close_path(context);
    SetColour(context, colour);
    cairo_fill(context);
}

/// Draws a character with its left edge at `left` and its baseline at `bottom`.
void DrawCharacter(cairo_t* context, const Surface& surface, const Outline& outline, double left, double bottom,
                   double scaleRight, double scaleUp) {
    cairo_new_path(context);
    for (const std::vector<Pixel>& contour : outline.contours) {
        cairo_new_sub_path(context);
        for (const Pixel& point : contour) {
            const Pixel pixel = surface(left + point.x * scaleRight, bottom + point.y * scaleUp);
            cairo_line_to(context, pixel.x, pixel.y);
        }
        cairo_close_path(context);
    }
    cairo_fill(context);
}

}  // namespace

void DrawLine(cairo_t* context, Lettering& lettering, const Surface& surface, std::string_view typeface,
              std::string_view text, double height, double width, const Colour& ink) {
    double natural = 0;
    for (const char character : text) {
        natural += lettering.Of(typeface, character).step;
    }
    const double scaleRight = std::min(height, width / natural);
    double left = -natural * scaleRight / 2;
    SetColour(context, ink);
    for (const char character : text) {
        const Outline& outline = lettering.Of(typeface, character);
        DrawCharacter(context, surface, outline, left, -height / 2, scaleRight, height);
        left += outline.step * scaleRight;
    }
}

void DrawPlate(cairo_t* context, Lettering& lettering, const Camera& camera, const Vehicle& vehicle,
               const Place& place) {
    const PlateKind& kind = KindOf(vehicle.design);
    const Surface surface = [&](double right, double up) { return camera.Project(OnPlate(vehicle, place, right, up)); };
    const Colour field = Mixed(kind.field, dust, vehicle.dirt);
    const Colour ink = Mixed(kind.ink, dust, vehicle.dirt * 0.5);
    const double right = kind.width / 2;
    const double up = kind.height / 2;

    // The holder, with the dealer's name on its lower edge.
    Fill(context, surface, -right - 0.015, -up - 0.030, right + 0.015, up + 0.015, frame);
    const Surface lowerEdge = [&](double x, double y) { return surface(x, y - up - 0.016); };
    DrawLine(context, lettering, lowerEdge, plateTypefaces[1], "AUTOHAUS NORD", 0.014, kind.width * 0.8,
             {0.75, 0.75, 0.75});

    Fill(context, surface, -right, -up, right, up, field);
    Fill(context, surface, -right + 0.005, -up + 0.005, right - 0.005, up - 0.005, ink);
    Fill(context, surface, -right + 0.008, -up + 0.008, right - 0.008, up - 0.008, field);
    double left = -right + 0.014;
    double middle = 0;
    if (kind.band == PlateBand::Left) {
        Fill(context, surface, -right, -up, -right + 0.044, up, Mixed(bandBlue, dust, vehicle.dirt));
        left = -right + 0.052;
    } else if (kind.band == PlateBand::Top) {
        Fill(context, surface, -right, up - 0.030, right, up, Mixed(bandBlue, dust, vehicle.dirt));
        middle = -0.013;
    }

    // All characters have cells of the same width, in which narrow characters stay narrow.
    constexpr double gap = 0.020;
    const auto gaps = std::count_if(kind.gapsAt.begin(), kind.gapsAt.end(), [](int before) { return before > 0; });
    const double cell =
        (right - 0.014 - left - gap * static_cast<double>(gaps)) / static_cast<double>(kind.format.size());
    const double usual = std::min(kind.characterHeight, cell * 0.88 / lettering.Of(kind.typeface, 'O').width);
    SetColour(context, ink);
    for (std::size_t i = 0; i < vehicle.plate.size(); ++i) {
        if (i > 0 && std::find(kind.gapsAt.begin(), kind.gapsAt.end(), static_cast<int>(i)) != kind.gapsAt.end()) {
            left += gap;
        }
        const Outline& outline = lettering.Of(kind.typeface, vehicle.plate[i]);
        const double scaleRight = std::min(usual, cell * 0.92 / outline.width);
        DrawCharacter(context, surface, outline, left + (cell - outline.width * scaleRight) / 2,
                      middle - kind.characterHeight / 2, scaleRight, kind.characterHeight);
        left += cell;
    }
}

}  // namespace road_clip
