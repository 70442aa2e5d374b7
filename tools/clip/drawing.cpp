#include "tools/clip/drawing.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "tools/clip/random.h"
#include "tools/clip/vehicle_drawing.h"

namespace road_clip {
namespace {

constexpr double nearEdge = 11.0;  // nearer than this the ground is below the picture
constexpr double roadHalfWidth = 3.95;

SurfacePtr MakeSurface(int width, int height) {
    SurfacePtr surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height));
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
        throw std::runtime_error("no memory for a picture of this size");
    }
    return surface;
}

class GroundPen {
  public:
    GroundPen(cairo_t* cairoContext, const Camera& seenBy) : context(cairoContext), camera(seenBy) {}

    void Colour(double red, double green, double blue, double alpha = 1) {
        cairo_set_source_rgba(context, red, green, blue, alpha);
    }

    /// A strip along the road, between two lines that `left` and `right` give for every distance.
    template <typename Left, typename Right>
    void Strip(double from, double to, Left left, Right right) {
        cairo_new_path(context);
        constexpr int steps = 60;
        const auto distance = [&](int step) {
            // Closer together where the camera is near.
            const double part = static_cast<double>(step) / steps;
            return 1 / ((1 - part) / from + part / to);
        };
        for (int i = 0; i <= steps; ++i) {
            Line({left(distance(i)), 0, distance(i)});
        }
        for (int i = steps; i >= 0; --i) {
            Line({right(distance(i)), 0, distance(i)});
        }
        cairo_close_path(context);
        cairo_fill(context);
    }

    void Straight(double from, double to, double left, double right) {
        Strip(
            from, to, [left](double) { return left; }, [right](double) { return right; });
    }

    void Bush(double x, double z, double size, Random& random) {
        const Pixel foot = camera.Project({x, 0, z});
        const double unit = camera.Project({x + 1, 0, z}).x - foot.x;
        // Its shadow, then leaves from the dark ones below to the light ones above.
        cairo_save(context);
        cairo_translate(context, foot.x + 0.35 * size * unit, foot.y);
        cairo_scale(context, 0.95 * size * unit, 0.26 * size * unit);
        cairo_arc(context, 0, 0, 1, 0, 6.2832);
        cairo_restore(context);
        Colour(0.03, 0.06, 0.03, 0.35);
        cairo_fill(context);
        constexpr int leaves = 46;
        for (int i = 0; i < leaves; ++i) {
            const double level = static_cast<double>(i) / leaves;
            const double angle = random.Between(0, 6.2832);
            const double spread = random.Unit();
            const double px = foot.x + std::cos(angle) * spread * 0.62 * size * unit - 0.08 * level * size * unit;
            const double py = foot.y - (0.30 + 0.55 * level + 0.25 * std::sin(angle) * spread) * size * unit;
            const double shade = 0.62 + 0.55 * level + random.Between(-0.08, 0.08);
            Colour(0.14 * shade, 0.31 * shade, 0.12 * shade);
            cairo_arc(context, px, py, random.Between(0.16, 0.28) * size * unit, 0, 6.2832);
            cairo_fill(context);
        }
    }

    void Lamp(double x, double z) {
        const Pixel foot = camera.Project({x, 0, z});
        const Pixel top = camera.Project({x, 7.0, z});
        const Pixel arm = camera.Project({x > 0 ? x - 1.6 : x + 1.6, 7.2, z});
        const double unit = camera.Project({x + 1, 0, z}).x - foot.x;
        Colour(0.34, 0.36, 0.38);
        cairo_set_line_cap(context, CAIRO_LINE_CAP_ROUND);
        cairo_set_line_width(context, 0.13 * unit);
        cairo_move_to(context, foot.x, foot.y);
        cairo_line_to(context, top.x, top.y);
        cairo_line_to(context, arm.x, arm.y);
        cairo_stroke(context);
    }

  private:
    void Line(const Point& point) {
        const Pixel pixel = camera.Project(point);
        cairo_line_to(context, pixel.x, pixel.y);
    }

    cairo_t* context;
    const Camera& camera;
};

/// Roughens what has been drawn, so that large areas do not look poured.
void AddGrain(cairo_surface_t* surface, Random& random) {
    cairo_surface_flush(surface);
    std::uint8_t* const pixels = cairo_image_surface_get_data(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    const int rows = cairo_image_surface_get_height(surface);
    const int columns = cairo_image_surface_get_width(surface);
    for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < columns; ++x) {
            const int grain = random.Below(9) - 4;
            std::uint8_t* const pixel = pixels + static_cast<std::ptrdiff_t>(y) * stride + x * 4;
            for (int channel = 0; channel < 3; ++channel) {
                pixel[channel] = static_cast<std::uint8_t>(std::clamp(pixel[channel] + grain, 0, 255));
            }
        }
    }
    cairo_surface_mark_dirty(surface);
}

}  // namespace

Painter::Painter(int pictureWidth, int pictureHeight, std::uint64_t seed)
    : camera(pictureWidth, pictureHeight),
      width(pictureWidth),
      height(pictureHeight),
      ground(MakeSurface(pictureWidth, pictureHeight)),
      picture(MakeSurface(pictureWidth, pictureHeight)),
      context(cairo_create(picture.get())) {
    PaintGround(seed);
}

void Painter::PaintGround(std::uint64_t seed) {
    Random random(seed ^ 0x6a55U);
    const CairoPtr groundContext(cairo_create(ground.get()));
    cairo_t* const cairo = groundContext.get();
    GroundPen pen(cairo, camera);

    // Grass, hazier far away, with darker and lighter patches.
    cairo_pattern_t* const grass = cairo_pattern_create_linear(0, 0, 0, height);
    cairo_pattern_add_color_stop_rgb(grass, 0, 0.49, 0.57, 0.42);
    cairo_pattern_add_color_stop_rgb(grass, 0.35, 0.36, 0.48, 0.26);
    cairo_pattern_add_color_stop_rgb(grass, 1, 0.29, 0.42, 0.19);
    cairo_set_source(cairo, grass);
    cairo_paint(cairo);
    cairo_pattern_destroy(grass);
    for (int i = 0; i < 900; ++i) {
        const double z = nearEdge / (1 - 0.93 * random.Unit());
        const double x = random.Between(-0.40, 0.40) * z;
        const double light = random.Between(-1, 1);
        pen.Colour(light > 0 ? 0.5 : 0.1, light > 0 ? 0.6 : 0.2, light > 0 ? 0.3 : 0.05, 0.08 * std::abs(light));
        const double size = random.Between(0.2, 1.1);
        pen.Straight(z, z + size, x, x + size);
    }

    // Gravel beside the asphalt, the turn-off first, the road over it.
    const auto turnLeft = [](double side) { return [side](double z) { return TurnOffLaneX(z) - side; }; };
    const auto turnRight = [](double side) { return [side](double z) { return TurnOffLaneX(z) + side; }; };
    constexpr double turnFrom = 52.0;
    pen.Colour(0.55, 0.53, 0.47);
    pen.Strip(nearEdge, turnFrom, turnLeft(2.5), turnRight(2.5));
    pen.Straight(nearEdge, 400, -roadHalfWidth - 0.55, roadHalfWidth + 0.55);
    pen.Colour(0.345, 0.350, 0.365);
    pen.Strip(nearEdge, turnFrom, turnLeft(1.95), turnRight(1.95));
    pen.Straight(nearEdge, 400, -roadHalfWidth, roadHalfWidth);
    // Where wheels run the asphalt is darker, and patches differ.
    for (const double lane : {comingLaneX, goingLaneX}) {
        for (const double wheel : {-0.75, 0.75}) {
            for (int layer = 0; layer < 4; ++layer) {
                const double half = 0.12 + 0.09 * layer;
                pen.Colour(0.12, 0.12, 0.14, 0.07);
                pen.Straight(nearEdge, 400, lane + wheel - half, lane + wheel + half);
            }
        }
    }
    for (int i = 0; i < 26; ++i) {
        const double z = nearEdge / (1 - 0.9 * random.Unit());
        const double x = random.Between(-3.6, 2.4);
        pen.Colour(0.15, 0.15, 0.17, random.Between(0.06, 0.16));
        pen.Straight(z, z + random.Between(1, 5), x, x + random.Between(0.4, 1.2));
    }

    // Lines: edges, broken beside the turn-off, and dashes in the middle.
    pen.Colour(0.90, 0.90, 0.87);
    pen.Straight(nearEdge, 400, roadHalfWidth - 0.36, roadHalfWidth - 0.22);
    pen.Straight(45, 400, -roadHalfWidth + 0.22, -roadHalfWidth + 0.36);
    pen.Straight(nearEdge, 23, -roadHalfWidth + 0.22, -roadHalfWidth + 0.36);
    for (double z = 24; z < 45; z += 2) {
        pen.Straight(z, z + 1, -roadHalfWidth + 0.22, -roadHalfWidth + 0.36);
    }
    pen.Strip(nearEdge, 44, turnLeft(1.72), turnLeft(1.58));
    pen.Strip(nearEdge, 27, turnRight(1.58), turnRight(1.72));
    for (double z = 12; z < 300; z += 6) {
        pen.Straight(z, z + 3, -0.07, 0.07);
    }

    AddGrain(ground.get(), random);

    // What stands beside the road, far things first.
    struct Plant {
        double x;
        double z;
        double size;
    };
    std::vector<Plant> plants;
    for (int i = 0; i < 46; ++i) {
        const double z = 22 + 130 * random.Unit();
        plants.push_back({random.Between(7.5, 18.0) + 0.04 * z, z, random.Between(0.9, 2.4)});
    }
    for (int i = 0; i < 40; ++i) {
        const double z = 50 + 110 * random.Unit();
        plants.push_back({-random.Between(8.0, 20.0) - 0.04 * z, z, random.Between(0.9, 2.4)});
    }
    std::sort(plants.begin(), plants.end(), [](const Plant& a, const Plant& b) { return a.z > b.z; });
    double lampZ = 118;
    for (const Plant& plant : plants) {
        while (lampZ > plant.z && lampZ > 25) {
            pen.Lamp(5.6, lampZ);
            lampZ -= 24;
        }
        pen.Bush(plant.x, plant.z, plant.size, random);
    }

    // Haze towards the far end.
    cairo_pattern_t* const haze = cairo_pattern_create_linear(0, 0, 0, height * 0.45);
    cairo_pattern_add_color_stop_rgba(haze, 0, 0.80, 0.84, 0.88, 0.42);
    cairo_pattern_add_color_stop_rgba(haze, 1, 0.80, 0.84, 0.88, 0);
    cairo_set_source(cairo, haze);
    cairo_paint(cairo);
    cairo_pattern_destroy(haze);
    cairo_surface_flush(ground.get());
}

void Painter::Paint(const std::vector<Vehicle>& vehicles, double second) {
    cairo_t* const cairo = context.get();
    cairo_set_source_surface(cairo, ground.get(), 0, 0);
    cairo_paint(cairo);

    std::vector<std::pair<const Vehicle*, Place>> visible;
    for (const Vehicle& vehicle : vehicles) {
        const Place place = vehicle.PlaceAt(second);
        const double length = ExtentOf(vehicle.shape).length;
        if (place.z + length > 6.0 && place.z > 3.0 && place.z < farthestVisible) {
            visible.emplace_back(&vehicle, place);
        }
    }
    std::sort(visible.begin(), visible.end(), [](const auto& a, const auto& b) { return a.second.z > b.second.z; });
    for (const auto& [vehicle, place] : visible) {
        DrawShadow(cairo, camera, *vehicle, place);
    }
    for (const auto& [vehicle, place] : visible) {
        DrawVehicle(cairo, camera, *vehicle, place, second);
    }
    cairo_surface_flush(picture.get());
}

const std::uint8_t* Painter::Pixels() const {
    return cairo_image_surface_get_data(picture.get());
}

int Painter::Stride() const {
    return cairo_image_surface_get_stride(picture.get());
}

void Painter::SavePicture(const std::filesystem::path& file) const {
    if (cairo_surface_write_to_png(picture.get(), file.string().c_str()) != CAIRO_STATUS_SUCCESS) {
        throw std::runtime_error("cannot write " + file.string());
    }
}

}  // namespace road_clip
