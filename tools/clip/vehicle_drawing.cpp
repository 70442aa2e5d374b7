#include "tools/clip/vehicle_drawing.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <vector>

#include "tools/clip/plate_drawing.h"

namespace road_clip {
namespace {

constexpr double pi = 3.14159265358979323846;

constexpr Colour tyre{0.07, 0.07, 0.08};
constexpr Colour hub{0.55, 0.56, 0.58};
constexpr Colour trim{0.11, 0.11, 0.12};
constexpr Colour chrome{0.72, 0.73, 0.75};
constexpr Colour glassLow{0.30, 0.38, 0.44};
constexpr Colour glassHigh{0.07, 0.09, 0.12};
constexpr Colour lampWhite{0.95, 0.96, 0.90};
constexpr Colour lampRed{0.72, 0.06, 0.06};
constexpr Colour lampAmber{0.98, 0.62, 0.10};
constexpr Colour cargoPaint{0.86, 0.87, 0.88};

Colour Scaled(const Colour& colour, double factor) {
    return {std::min(colour.red * factor, 1.0), std::min(colour.green * factor, 1.0),
            std::min(colour.blue * factor, 1.0)};
}

/// A point of a vehicle: metres to the right of the middle, above the ground, behind the front.
struct Spot {
    double right;
    double up;
    double back;
};

class VehiclePen {
  public:
    VehiclePen(cairo_t* context, const Camera& camera, const Vehicle& vehicle, const Place& place)
        : context_(context),
          camera_(camera),
          vehicle_(vehicle),
          place_(place),
          length_(ExtentOf(vehicle.shape).length) {}

    /// True when the camera sees the front.
    bool Front() const { return !vehicle_.ShowsItsRear(); }

    Point At(const Spot& spot) const {
        return OnVehicle(place_, spot.right, spot.up, Front() ? spot.back : length_ - spot.back);
    }

    /// Draws a flat part of the body, shaded by the light, unless it faces away from the camera. `inside` is any point
    /// behind it. Returns whether it was drawn.
    bool Panel(const std::vector<Spot>& spots, const Colour& paint, const Spot& inside, double gloss = 0.10) {
        Point normal;
        if (!Faces(spots, inside, normal)) {
            return false;
        }
        static const Point light = Normalised(towardsSun);
        const double shade = 0.50 + 0.55 * std::max(Dot(normal, light), 0.0);
        Fill(spots, Scaled(paint, shade * (1 + gloss)), Scaled(paint, shade * (1 - gloss)));
        return true;
    }

    bool Faces(const std::vector<Spot>& spots, const Spot& inside, Point& normal) const {
        const Point a = At(spots[0]);
        const Point b = At(spots[1]);
        const Point c = At(spots[2]);
        normal = Normalised(Cross(b - a, c - a));
        if (Dot(normal, a - At(inside)) < 0) {
            normal = normal * -1;
        }
        return Dot(normal, Camera::Position() - a) > 0;
    }

    /// Fills with a gradient from the top to the bottom of the projected area.
    void Fill(const std::vector<Spot>& spots, const Colour& top, const Colour& bottom) {
        double highest = 1e9;
        double lowest = -1e9;
        cairo_new_path(context_);
        for (const Spot& spot : spots) {
            const Pixel pixel = camera_.Project(At(spot));
            cairo_line_to(context_, pixel.x, pixel.y);
            highest = std::min(highest, pixel.y);
            lowest = std::max(lowest, pixel.y);
        }
        cairo_close_path(context_);
        const Colour middle{(top.red + bottom.red) / 2, (top.green + bottom.green) / 2, (top.blue + bottom.blue) / 2};
        // One colour suffices where a gradient would not be visible.
        constexpr double flatHeight = 4.0;
        constexpr double flatDifference = 0.08;
        if (lowest - highest > flatHeight && std::abs(top.green - bottom.green) + std::abs(top.red - bottom.red) >
                                                 flatDifference * (top.green + top.red)) {
            cairo_pattern_t* const pattern = cairo_pattern_create_linear(0, highest, 0, lowest);
            cairo_pattern_add_color_stop_rgb(pattern, 0, top.red, top.green, top.blue);
            cairo_pattern_add_color_stop_rgb(pattern, 1, bottom.red, bottom.green, bottom.blue);
            cairo_set_source(context_, pattern);
            cairo_pattern_destroy(pattern);
            cairo_fill_preserve(context_);
            cairo_set_source_rgb(context_, middle.red, middle.green, middle.blue);
        } else {
            cairo_set_source_rgb(context_, middle.red, middle.green, middle.blue);
            cairo_fill_preserve(context_);
        }
        // Closes the seams between neighbouring panels.
        cairo_set_line_width(context_, 0.7);
        cairo_set_line_join(context_, CAIRO_LINE_JOIN_ROUND);
        cairo_stroke(context_);
    }

    void Fill(const std::vector<Spot>& spots, const Colour& colour) { Fill(spots, colour, colour); }

    /// Draws glass inside a panel, slightly smaller than it.
    void Window(const std::vector<Spot>& spots, const Spot& inside, double part = 0.90) {
        Point normal;
        if (!Faces(spots, inside, normal)) {
            return;
        }
        Spot middle{0, 0, 0};
        for (const Spot& spot : spots) {
            middle.right += spot.right / static_cast<double>(spots.size());
            middle.up += spot.up / static_cast<double>(spots.size());
            middle.back += spot.back / static_cast<double>(spots.size());
        }
        std::vector<Spot> glass;
        for (const Spot& spot : spots) {
            glass.push_back({middle.right + (spot.right - middle.right) * part,
                             middle.up + (spot.up - middle.up) * part, middle.back + (spot.back - middle.back) * part});
        }
        Fill(glass, glassHigh, glassLow);
    }

    /// An upright rectangle across the vehicle, facing the camera.
    static std::vector<Spot> Across(double left, double right, double bottom, double top, double back) {
        return {{left, top, back}, {right, top, back}, {right, bottom, back}, {left, bottom, back}};
    }

    void Both(double inner, double outer, double bottom, double top, double back, const Colour& high,
              const Colour& low) {
        Fill(Across(-outer, -inner, bottom, top, back), high, low);
        Fill(Across(inner, outer, bottom, top, back), high, low);
    }

    void Wheel(double side, double back, double radius) {
        const auto disc = [&](double size, const Colour& colour) {
            std::vector<Spot> spots;
            for (int i = 0; i < 24; ++i) {
                const double angle = 2 * pi * i / 24;
                spots.push_back({side, radius + size * std::sin(angle), back + size * std::cos(angle)});
            }
            Point normal;
            if (Faces(spots, {0, radius, back}, normal)) {
                Fill(spots, colour);
            }
        };
        disc(radius * 1.16, trim);
        disc(radius, tyre);
        disc(radius * 0.62, hub);
        disc(radius * 0.22, Scaled(hub, 0.5));
    }

    cairo_t* Context() const { return context_; }
    const Camera& GetCamera() const { return camera_; }
    const Vehicle& GetVehicle() const { return vehicle_; }
    const Place& GetPlace() const { return place_; }
    double Length() const { return length_; }
    /// The distance from the front to the end that the camera sees.
    double End() const { return Front() ? 0 : length_; }

  private:
    cairo_t* context_;
    const Camera& camera_;
    const Vehicle& vehicle_;
    const Place& place_;
    double length_;
};

/// A cross-section of a body, chamfered along its upper edges.
struct Section {
    double back;
    double halfWidth;
    double bottom;
    double top;
    double chamfer;

    std::vector<Spot> Outline() const {
        return {{-halfWidth, bottom, back},       {-halfWidth, top - chamfer, back}, {-halfWidth + chamfer, top, back},
                {halfWidth - chamfer, top, back}, {halfWidth, top - chamfer, back},  {halfWidth, bottom, back}};
    }
};

/// Draws a body along its cross-sections, from front to rear, and the end that the camera sees.
void DrawBody(VehiclePen& pen, const std::vector<Section>& sections, const Colour& paint) {
    const auto strips = [&](std::size_t i) {
        const std::vector<Spot> near = sections[i].Outline();
        const std::vector<Spot> far = sections[i + 1].Outline();
        const Spot inside{0, (sections[i].bottom + sections[i].top) / 2, (sections[i].back + sections[i + 1].back) / 2};
        for (std::size_t k = 0; k + 1 < near.size(); ++k) {
            pen.Panel({near[k], near[k + 1], far[k + 1], far[k]}, paint, inside, 0.03);
        }
    };
    // From the far end to the near one.
    if (pen.Front()) {
        for (std::size_t i = sections.size() - 1; i-- > 0;) {
            strips(i);
        }
        pen.Panel(sections.front().Outline(), paint, {0, sections.front().bottom, sections.back().back});
    } else {
        for (std::size_t i = 0; i + 1 < sections.size(); ++i) {
            strips(i);
        }
        pen.Panel(sections.back().Outline(), paint, {0, sections.back().bottom, sections.front().back});
    }
}

/// A cabin: base and roof rectangles, glass all around.
struct Cabin {
    double baseFront;
    double baseBack;
    double baseUp;
    double baseHalfWidth;
    double roofFront;
    double roofBack;
    double roofUp;
    double roofHalfWidth;
    bool rearGlass;
};

void DrawCabin(VehiclePen& pen, const Cabin& cabin, const Colour& paint) {
    const Spot inside{0, (cabin.baseUp + cabin.roofUp) / 2, (cabin.roofFront + cabin.roofBack) / 2};
    const auto base = [&](double side, double back) { return Spot{side * cabin.baseHalfWidth, cabin.baseUp, back}; };
    const auto roof = [&](double side, double back) { return Spot{side * cabin.roofHalfWidth, cabin.roofUp, back}; };
    for (const double side : {-1.0, 1.0}) {
        const std::vector<Spot> flank{roof(side, cabin.roofFront), roof(side, cabin.roofBack),
                                      base(side, cabin.baseBack), base(side, cabin.baseFront)};
        if (pen.Panel(flank, paint, inside)) {
            // Two side windows with a pillar between them.
            const auto between = [](const Spot& a, const Spot& b, double part) {
                return Spot{a.right + (b.right - a.right) * part, a.up + (b.up - a.up) * part,
                            a.back + (b.back - a.back) * part};
            };
            pen.Window({flank[0], between(flank[0], flank[1], 0.48), between(flank[3], flank[2], 0.48), flank[3]},
                       inside, 0.84);
            pen.Window({between(flank[0], flank[1], 0.52), flank[1], flank[2], between(flank[3], flank[2], 0.52)},
                       inside, 0.84);
        }
    }
    const std::vector<Spot> front{roof(-1, cabin.roofFront), roof(1, cabin.roofFront), base(1, cabin.baseFront),
                                  base(-1, cabin.baseFront)};
    const std::vector<Spot> rear{roof(-1, cabin.roofBack), roof(1, cabin.roofBack), base(1, cabin.baseBack),
                                 base(-1, cabin.baseBack)};
    pen.Panel(front, paint, inside);
    pen.Window(front, inside);
    pen.Panel(rear, paint, inside);
    if (cabin.rearGlass) {
        pen.Window(rear, inside);
    }
    pen.Panel({roof(-1, cabin.roofFront), roof(1, cabin.roofFront), roof(1, cabin.roofBack), roof(-1, cabin.roofBack)},
              paint, inside, 0.04);
}

void DrawTyres(VehiclePen& pen, double inner, double outer, double back) {
    pen.Both(inner, outer, 0.0, 0.40, back, tyre, tyre);
}

bool HazardLightsOn(const Place& place, double second) {
    return place.standing && std::fmod(second, 0.8) < 0.4;
}

/// Draws upright bars, which resemble a row of letters from a distance.
void DrawGrille(VehiclePen& pen, double halfWidth, double bottom, double top) {
    const double end = pen.End();
    pen.Fill(VehiclePen::Across(-halfWidth, halfWidth, bottom, top, end), trim);
    constexpr int bars = 11;
    for (int i = 0; i < bars; ++i) {
        const double middle = halfWidth * (2.0 * (i + 0.5) / bars - 1);
        pen.Fill(VehiclePen::Across(middle - 0.008, middle + 0.008, bottom + 0.01, top - 0.01, end),
                 Scaled(chrome, 0.65));
    }
    pen.Fill(VehiclePen::Across(-halfWidth, halfWidth, top - 0.012, top, end), chrome);
}

void DrawCar(VehiclePen& pen, double second) {
    const Colour& paint = pen.GetVehicle().colour;
    const double end = pen.End();
    DrawTyres(pen, 0.52, 0.80, pen.Front() ? 0.35 : pen.Length() - 0.35);
    DrawBody(pen,
             {{0.00, 0.80, 0.20, 0.66, 0.05},
              {0.10, 0.85, 0.18, 0.74, 0.07},
              {0.45, 0.89, 0.18, 0.82, 0.08},
              {1.35, 0.90, 0.18, 0.93, 0.07},
              {3.70, 0.90, 0.18, 0.95, 0.07},
              {4.18, 0.87, 0.20, 0.92, 0.07},
              {4.30, 0.82, 0.22, 0.80, 0.06}},
             paint);
    for (const double side : {-0.905, 0.905}) {
        pen.Wheel(side, 0.82, 0.32);
        pen.Wheel(side, 3.42, 0.32);
    }
    DrawCabin(pen, {1.25, 4.05, 0.92, 0.82, 1.95, 3.45, 1.45, 0.63, true}, paint);
    if (pen.Front()) {
        DrawGrille(pen, 0.44, 0.54, 0.66);
        pen.Both(0.48, 0.78, 0.53, 0.64, end, lampWhite, Scaled(lampWhite, 0.7));
        pen.Fill(VehiclePen::Across(-0.60, 0.60, 0.22, 0.31, end), trim);
        if (HazardLightsOn(pen.GetPlace(), second)) {
            pen.Both(0.66, 0.79, 0.46, 0.53, end, lampAmber, lampAmber);
        }
        pen.Both(0.90, 1.05, 0.92, 1.04, 1.45, Scaled(paint, 0.8), trim);
    } else {
        pen.Fill(VehiclePen::Across(-0.80, 0.80, 0.22, 0.31, end), trim);
        pen.Both(0.50, 0.80, 0.58, 0.72, end, lampRed, Scaled(lampRed, 0.6));
        pen.Both(0.50, 0.60, 0.60, 0.66, end, lampWhite, lampWhite);
    }
}

void DrawVan(VehiclePen& pen, double second) {
    const Colour& paint = pen.GetVehicle().colour;
    const double end = pen.End();
    DrawTyres(pen, 0.56, 0.86, pen.Front() ? 0.35 : pen.Length() - 0.35);
    DrawBody(pen,
             {{0.00, 0.90, 0.22, 0.86, 0.07},
              {0.12, 0.95, 0.20, 0.98, 0.08},
              {0.75, 0.98, 0.20, 1.12, 0.06},
              {4.90, 0.98, 0.20, 1.12, 0.02},
              {5.00, 0.97, 0.22, 1.12, 0.02}},
             paint);
    for (const double side : {-0.985, 0.985}) {
        pen.Wheel(side, 0.90, 0.35);
        pen.Wheel(side, 4.10, 0.35);
    }
    DrawCabin(pen, {0.65, 5.00, 1.10, 0.95, 1.35, 4.94, 2.05, 0.86, true}, paint);
    if (pen.Front()) {
        DrawGrille(pen, 0.50, 0.56, 0.78);
        pen.Both(0.54, 0.86, 0.60, 0.80, end, lampWhite, Scaled(lampWhite, 0.7));
        pen.Fill(VehiclePen::Across(-0.72, 0.72, 0.24, 0.32, end), trim);
        if (HazardLightsOn(pen.GetPlace(), second)) {
            pen.Both(0.72, 0.88, 0.50, 0.60, end, lampAmber, lampAmber);
        }
        pen.Both(0.98, 1.18, 1.10, 1.36, 0.95, Scaled(paint, 0.8), trim);
    } else {
        pen.Fill(VehiclePen::Across(-0.012, 0.012, 0.36, 1.98, end), Scaled(paint, 0.45));
        pen.Fill(VehiclePen::Across(-0.92, 0.92, 0.22, 0.32, end), trim);
        pen.Both(0.78, 0.94, 0.62, 1.06, end, lampRed, Scaled(lampRed, 0.6));
        pen.Both(0.80, 0.92, 0.76, 0.84, end, lampAmber, lampAmber);
    }
}

/// Draws the lettering on the rear: the owner's business, or the model.
void DrawWords(VehiclePen& pen, Lettering& lettering) {
    const auto words = [&](const char* text, double right, double up, double height, double width, const Colour& ink) {
        const Surface surface = [&](double x, double y) {
            return pen.GetCamera().Project(OnVehicle(pen.GetPlace(), right + x, up + y, 0));
        };
        DrawLine(pen.Context(), lettering, surface, plateTypefaces[1], text, height, width, ink);
    };
    switch (pen.GetVehicle().shape) {
        case VehicleShape::Car:
            words("GLX", 0.58, 0.745, 0.045, 0.20, chrome);
            break;
        case VehicleShape::Van:
            words("BAU", -0.46, 0.82, 0.15, 0.60, {0.92, 0.92, 0.90});
            break;
        case VehicleShape::Truck:
            words("MOVING", -0.55, 2.0, 0.22, 0.95, {0.95, 0.95, 0.93});
            words("24 HOURS", 0.55, 2.0, 0.14, 0.85, {0.95, 0.95, 0.93});
            break;
    }
}

void DrawTruck(VehiclePen& pen) {
    const Colour& paint = pen.GetVehicle().colour;
    const double length = pen.Length();
    DrawTyres(pen, 0.62, 1.10, length - 0.8);
    const std::vector<Section> cab{{0.0, 1.15, 0.40, 2.60, 0.10}, {1.9, 1.15, 0.40, 2.75, 0.10}};
    const std::vector<Section> cargo{{2.1, 1.22, 1.00, 3.30, 0.03}, {length, 1.22, 1.00, 3.30, 0.03}};
    const std::vector<Section> chassis{{2.1, 0.45, 0.55, 1.00, 0.01}, {length - 0.05, 0.45, 0.55, 1.00, 0.01}};
    DrawBody(pen, cab, paint);
    DrawBody(pen, chassis, trim);
    for (const double side : {-1.10, 1.10}) {
        pen.Wheel(side, 1.2, 0.48);
        pen.Wheel(side, length - 2.3, 0.48);
        pen.Wheel(side, length - 1.2, 0.48);
    }
    DrawBody(pen, cargo, cargoPaint);
    // The rear doors, a stripe in the owner's colour, and the bar with plate and lamps below them.
    for (const double side : {-1.22, 1.22}) {
        Point normal;
        const std::vector<Spot> stripe{{side, 2.2, 2.1}, {side, 2.2, length}, {side, 1.8, length}, {side, 1.8, 2.1}};
        if (pen.Faces(stripe, {0, 2.0, 4.0}, normal)) {
            pen.Fill(stripe, Scaled(paint, 0.8));
        }
    }
    pen.Fill(VehiclePen::Across(-1.14, 1.14, 1.10, 3.20, length), Scaled(cargoPaint, 0.62), Scaled(cargoPaint, 0.54));
    pen.Fill(VehiclePen::Across(-1.14, 1.14, 1.80, 2.20, length), Scaled(paint, 0.9));
    pen.Fill(VehiclePen::Across(-0.02, 0.02, 1.10, 3.20, length), Scaled(cargoPaint, 0.30));
    pen.Both(0.30, 0.34, 1.10, 3.20, length, Scaled(cargoPaint, 0.36), Scaled(cargoPaint, 0.36));
    pen.Fill(VehiclePen::Across(-1.16, 1.16, 0.56, 0.96, length), {0.16, 0.16, 0.17}, {0.10, 0.10, 0.11});
    pen.Both(0.72, 1.12, 0.66, 0.84, length, lampRed, Scaled(lampRed, 0.6));
    pen.Both(0.58, 0.70, 0.66, 0.84, length, lampAmber, Scaled(lampAmber, 0.7));
}

/// Draws the shadow across the road on a vehicle, computed in the plane of its plate.
void DrawShadowBand(cairo_t* context, const Camera& camera, const Place& place, double strength) {
    // A point above the ground is in shadow if the sun's ray through it meets the ground in the shadow.
    const double right = -towardsSun.x / towardsSun.y;
    const double back = -towardsSun.z / towardsSun.y;
    constexpr double top = 4.0;
    const auto edge = [&](double line, double up) {
        const double x = (place.z + back * up - line) / shadowBand.slope - right * up;
        return camera.Project({x, up, place.z});
    };
    constexpr int layers = 4;
    for (int layer = 0; layer < layers; ++layer) {
        const double soft = 0.09 * layer;
        const Pixel corners[] = {edge(shadowBand.near + soft, 0.0), edge(shadowBand.near + soft, top),
                                 edge(shadowBand.far - soft, top), edge(shadowBand.far - soft, 0.0)};
        cairo_new_path(context);
        for (const Pixel& corner : corners) {
            cairo_line_to(context, corner.x, corner.y);
        }
        cairo_close_path(context);
        cairo_set_source_rgba(context, 0.02, 0.02, 0.05, 0.16 * strength);
        cairo_fill(context);
    }
}

/// True when the shadow across the road can reach a vehicle.
bool MeetsShadowBand(const Place& place) {
    return place.z > shadowBand.near - 6.0 && place.z < shadowBand.far + 4.0;
}

}  // namespace

void DrawShadow(cairo_t* context, const Camera& camera, const Vehicle& vehicle, const Place& place, double strength) {
    const Extent extent = ExtentOf(vehicle.shape);
    // Several layers, each slightly larger, make a soft edge. Under a cloudy sky the shadow is only below the vehicle.
    constexpr int layers = 4;
    for (int layer = 0; layer < layers; ++layer) {
        const double grow = 0.09 * layer - 0.10;
        const double shift = 0.56 * extent.height * strength;
        const Spot corners[] = {{-extent.halfWidth - grow, 0, -grow},
                                {extent.halfWidth + grow, 0, -grow},
                                {extent.halfWidth + grow + shift, 0, shift},
                                {extent.halfWidth + grow + shift, 0, extent.length + grow + shift},
                                {-extent.halfWidth - grow + shift, 0, extent.length + grow + shift},
                                {-extent.halfWidth - grow, 0, extent.length + grow}};
        cairo_new_path(context);
        for (const Spot& corner : corners) {
            const Pixel pixel = camera.Project(OnVehicle(place, corner.right, corner.up, corner.back));
            cairo_line_to(context, pixel.x, pixel.y);
        }
        cairo_close_path(context);
        cairo_set_source_rgba(context, 0.02, 0.02, 0.05, 0.13 + 0.08 * strength);
        cairo_fill(context);
    }
}

void DrawVehicle(cairo_t* context, Lettering& lettering, const Camera& camera, const Vehicle& vehicle,
                 const Place& place, const Light& light, double second) {
    const bool shaded = light.sun > 0.02 && MeetsShadowBand(place);
    if (shaded) {
        cairo_push_group(context);
    }
    VehiclePen pen(context, camera, vehicle, place);
    switch (vehicle.shape) {
        case VehicleShape::Car:
            DrawCar(pen, second);
            break;
        case VehicleShape::Van:
            DrawVan(pen, second);
            break;
        case VehicleShape::Truck:
            DrawTruck(pen);
            break;
    }
    if (vehicle.ShowsItsRear()) {
        DrawWords(pen, lettering);
    }
    DrawPlate(context, lettering, camera, vehicle, place);
    if (shaded) {
        cairo_set_operator(context, CAIRO_OPERATOR_ATOP);
        DrawShadowBand(context, camera, place, light.sun);
        cairo_pop_group_to_source(context);
        cairo_paint(context);
    }
}

std::vector<Point> LampsOf(const Vehicle& vehicle, const Place& place) {
    if (vehicle.ShowsItsRear()) {
        return {};
    }
    const double right = vehicle.shape == VehicleShape::Car ? 0.64 : 0.71;
    const double up = vehicle.shape == VehicleShape::Car ? 0.585 : 0.70;
    return {OnVehicle(place, -right, up, 0), OnVehicle(place, right, up, 0)};
}

}  // namespace road_clip
