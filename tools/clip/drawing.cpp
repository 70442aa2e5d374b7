#include "tools/clip/drawing.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "tools/clip/plate_drawing.h"
#include "tools/clip/random.h"
#include "tools/clip/vehicle_drawing.h"

namespace road_clip {
namespace {

constexpr double nearEdge = 10.0;  // the ground nearer than this is outside the picture
constexpr double roadLeft = -3.0;
constexpr double roadRight = 4.75;
constexpr double islandLeft = 0.65;
constexpr double islandRight = 1.15;
constexpr double cornerLeft = -2.75;  // of the oncoming lane

SurfacePtr MakeSurface(int width, int height) {
    SurfacePtr surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height));
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
        throw std::runtime_error("cannot allocate a picture of this size");
    }
    return surface;
}

class GroundPen {
  public:
    GroundPen(cairo_t* context, const Camera& camera) : context_(context), camera_(camera) {}

    void Colour(double red, double green, double blue, double alpha = 1) {
        cairo_set_source_rgba(context_, red, green, blue, alpha);
    }

    /// Draws a strip along the road, between the x that `left` and `right` return for each distance.
    template <typename Left, typename Right>
    void Strip(double from, double to, Left left, Right right) {
        cairo_new_path(context_);
        constexpr int steps = 60;
        const auto distance = [&](int step) {
            // Closer together near the camera.
            const double part = static_cast<double>(step) / steps;
            return 1 / ((1 - part) / from + part / to);
        };
        for (int i = 0; i <= steps; ++i) {
            Line({left(distance(i)), 0, distance(i)});
        }
        for (int i = steps; i >= 0; --i) {
            Line({right(distance(i)), 0, distance(i)});
        }
        cairo_close_path(context_);
        cairo_fill(context_);
    }

    void Straight(double from, double to, double left, double right) {
        Strip(
            from, to, [left](double) { return left; }, [right](double) { return right; });
    }

    /// Draws a strip across the road, between the distances that `near` and `far` return for each x.
    template <typename Near, typename Far>
    void Across(double from, double to, Near near, Far far) {
        cairo_new_path(context_);
        Line({from, 0, near(from)});
        Line({to, 0, near(to)});
        Line({to, 0, far(to)});
        Line({from, 0, far(from)});
        cairo_close_path(context_);
        cairo_fill(context_);
    }

    /// Draws a board on a post, with two lines of text.
    void Sign(const Point& foot, Lettering& lettering, const char* first, const char* second) {
        const auto board = [&](double left, double bottom, double right, double top) {
            cairo_new_path(context_);
            Line(foot + Point{left, bottom, 0});
            Line(foot + Point{left, top, 0});
            Line(foot + Point{right, top, 0});
            Line(foot + Point{right, bottom, 0});
            cairo_close_path(context_);
            cairo_fill(context_);
        };
        Colour(0.45, 0.46, 0.48);
        board(-0.03, 0, 0.03, 1.2);
        Colour(0.10, 0.20, 0.50);
        board(-0.32, 1.10, 0.32, 1.62);
        Colour(0.93, 0.93, 0.91);
        board(-0.30, 1.12, 0.30, 1.60);
        const auto lineAt = [&](double height) {
            return [this, foot, height](double right, double up) {
                return camera_.Project(foot + Point{right, height + up, 0});
            };
        };
        constexpr road_clip::Colour ink{0.10, 0.12, 0.30};
        DrawLine(context_, lettering, lineAt(1.47), plateTypefaces[1], first, 0.11, 0.50, ink);
        DrawLine(context_, lettering, lineAt(1.26), plateTypefaces[1], second, 0.16, 0.50, ink);
    }

    void Bush(double x, double z, double size, Random& random, double sun) {
        const Pixel foot = camera_.Project({x, 0, z});
        const double unit = camera_.Project({x + 1, 0, z}).x - foot.x;
        // Its shadow, then leaves from the dark ones below to the light ones above.
        cairo_save(context_);
        cairo_translate(context_, foot.x + 0.35 * size * unit, foot.y);
        cairo_scale(context_, 0.95 * size * unit, 0.26 * size * unit);
        cairo_arc(context_, 0, 0, 1, 0, 6.2832);
        cairo_restore(context_);
        Colour(0.03, 0.06, 0.03, 0.12 + 0.23 * sun);
        cairo_fill(context_);
        constexpr int leaves = 46;
        for (int i = 0; i < leaves; ++i) {
            const double level = static_cast<double>(i) / leaves;
            const double angle = random.Between(0, 6.2832);
            const double spread = random.Unit();
            const double px = foot.x + std::cos(angle) * spread * 0.62 * size * unit - 0.08 * level * size * unit;
            const double py = foot.y - (0.30 + 0.55 * level + 0.25 * std::sin(angle) * spread) * size * unit;
            const double shade = 0.62 + 0.55 * level + random.Between(-0.08, 0.08);
            Colour(0.14 * shade, 0.31 * shade, 0.12 * shade);
            cairo_arc(context_, px, py, random.Between(0.16, 0.28) * size * unit, 0, 6.2832);
            cairo_fill(context_);
        }
    }

    void Lamp(double x, double z) {
        const Pixel foot = camera_.Project({x, 0, z});
        const Pixel top = camera_.Project({x, 7.0, z});
        const Pixel arm = camera_.Project({x > 0 ? x - 1.6 : x + 1.6, 7.2, z});
        const double unit = camera_.Project({x + 1, 0, z}).x - foot.x;
        Colour(0.34, 0.36, 0.38);
        cairo_set_line_cap(context_, CAIRO_LINE_CAP_ROUND);
        cairo_set_line_width(context_, 0.13 * unit);
        cairo_move_to(context_, foot.x, foot.y);
        cairo_line_to(context_, top.x, top.y);
        cairo_line_to(context_, arm.x, arm.y);
        cairo_stroke(context_);
    }

  private:
    void Line(const Point& point) {
        const Pixel pixel = camera_.Project(point);
        cairo_line_to(context_, pixel.x, pixel.y);
    }

    cairo_t* context_;
    const Camera& camera_;
};

/// Adds noise to the drawing, so that large areas do not look uniform.
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

Painter::Painter(int width, int height, std::uint64_t seed)
    : camera_(width, height),
      width_(width),
      height_(height),
      sensor_(width, height, seed),
      sunnyGround_(MakeSurface(width, height)),
      cloudyGround_(MakeSurface(width, height)),
      ground_(MakeSurface(width, height)),
      scene_(MakeSurface(width, height)),
      context_(cairo_create(scene_.get())),
      picture_(MakeSurface(width, height)) {
    PaintGround(sunnyGround_.get(), seed, 1);
    PaintGround(cloudyGround_.get(), seed, 0);
}

void Painter::PaintGround(cairo_surface_t* surface, std::uint64_t seed, double sun) {
    Random random(seed ^ 0x6a55U);
    const CairoPtr groundContext(cairo_create(surface));
    cairo_t* const cairo = groundContext.get();
    GroundPen pen(cairo, camera_);

    // Grass, hazier far away, with darker and lighter patches.
    cairo_pattern_t* const grass = cairo_pattern_create_linear(0, 0, 0, height_);
    cairo_pattern_add_color_stop_rgb(grass, 0, 0.49, 0.57, 0.42);
    cairo_pattern_add_color_stop_rgb(grass, 0.35, 0.36, 0.48, 0.26);
    cairo_pattern_add_color_stop_rgb(grass, 1, 0.29, 0.42, 0.19);
    cairo_set_source(cairo, grass);
    cairo_paint(cairo);
    cairo_pattern_destroy(grass);
    for (int i = 0; i < 900; ++i) {
        const double z = nearEdge / (1 - 0.93 * random.Unit());
        const double x = random.Between(-0.22, 0.24) * z;
        const double light = random.Between(-1, 1);
        pen.Colour(light > 0 ? 0.5 : 0.1, light > 0 ? 0.6 : 0.2, light > 0 ? 0.3 : 0.05, 0.08 * std::abs(light));
        const double size = random.Between(0.2, 1.1);
        pen.Straight(z, z + size, x, x + size);
    }

    // Gravel beside the asphalt, the turn-off first, the road over it.
    const auto turnLeft = [](double side) { return [side](double z) { return TurnOffLaneX(z) - side; }; };
    const auto turnRight = [](double side) { return [side](double z) { return TurnOffLaneX(z) + side; }; };
    constexpr double turnFrom = 36.0;
    constexpr double farAway = 400;
    pen.Colour(0.55, 0.53, 0.47);
    pen.Strip(nearEdge, turnFrom, turnLeft(2.4), turnRight(2.4));
    pen.Straight(nearEdge, farAway, roadLeft - 0.5, roadRight + 0.5);
    pen.Colour(0.345, 0.350, 0.365);
    pen.Strip(nearEdge, turnFrom, turnLeft(1.9), turnRight(1.9));
    pen.Straight(nearEdge, farAway, roadLeft, roadRight);
    // The asphalt is darker in the wheel tracks and in patches.
    for (const double lane : {comingLaneX, goingLaneX}) {
        for (const double wheel : {-0.75, 0.75}) {
            for (int layer = 0; layer < 4; ++layer) {
                const double half = 0.12 + 0.09 * layer;
                pen.Colour(0.12, 0.12, 0.14, 0.07);
                pen.Straight(nearEdge, farAway, lane + wheel - half, lane + wheel + half);
            }
        }
    }
    for (int i = 0; i < 26; ++i) {
        const double z = nearEdge / (1 - 0.9 * random.Unit());
        const double x = random.Between(-2.8, 3.6);
        pen.Colour(0.15, 0.15, 0.17, random.Between(0.06, 0.16));
        pen.Straight(z, z + random.Between(1, 5), x, x + random.Between(0.4, 1.2));
    }

    // An island between the lanes, edge lines that are broken beside the turn-off, and the stop line.
    pen.Colour(0.56, 0.55, 0.53);
    pen.Straight(nearEdge, farAway, islandLeft, islandRight);
    pen.Colour(0.70, 0.69, 0.66);
    pen.Straight(nearEdge, farAway, islandLeft, islandLeft + 0.10);
    pen.Straight(nearEdge, farAway, islandRight - 0.10, islandRight);
    pen.Colour(0.90, 0.90, 0.87);
    pen.Straight(nearEdge, farAway, roadRight - 0.30, roadRight - 0.18);
    pen.Straight(turnFrom, farAway, cornerLeft, cornerLeft + 0.12);
    pen.Straight(nearEdge, 22, cornerLeft, cornerLeft + 0.12);
    for (double z = 22.8; z < turnFrom; z += 1.6) {
        pen.Straight(z, z + 0.8, cornerLeft, cornerLeft + 0.12);
    }
    pen.Straight(stopLineZ - 0.35, stopLineZ, cornerLeft + 0.25, islandLeft - 0.15);

    if (sun > 0) {
        constexpr int layers = 4;
        const auto line = [&](double at) { return [at](double x) { return at + shadowBand.slope * x; }; };
        for (int layer = 0; layer < layers; ++layer) {
            const double soft = 0.09 * layer;
            pen.Colour(0.02, 0.02, 0.05, 0.16 * sun);
            pen.Across(-14, 14, line(shadowBand.near + soft), line(shadowBand.far - soft));
        }
    }
    AddGrain(surface, random);

    // Objects beside the road, the farthest first.
    struct Plant {
        double x;
        double z;
        double size;
    };
    std::vector<Plant> plants;
    for (int i = 0; i < 46; ++i) {
        const double z = 30 + 120 * random.Unit();
        plants.push_back({random.Between(6.6, 10.0) + 0.05 * z, z, random.Between(0.6, 1.6)});
    }
    for (int i = 0; i < 40; ++i) {
        const double z = 44 + 110 * random.Unit();
        plants.push_back({-random.Between(5.0, 9.0) - 0.06 * z, z, random.Between(0.6, 1.6)});
    }
    std::sort(plants.begin(), plants.end(), [](const Plant& a, const Plant& b) { return a.z > b.z; });
    double lampZ = 118;
    for (const Plant& plant : plants) {
        while (lampZ > plant.z && lampZ > 25) {
            pen.Lamp(5.6, lampZ);
            lampZ -= 24;
        }
        pen.Bush(plant.x, plant.z, plant.size, random, sun);
    }
    pen.Sign({5.75, 0, 34.0}, lettering_, "ZONE", "30");
    pen.Sign({-4.2, 0, 40.0}, lettering_, "EXIT", "P 250 m");

    // Haze towards the far end.
    cairo_pattern_t* const haze = cairo_pattern_create_linear(0, 0, 0, height_ * 0.45);
    cairo_pattern_add_color_stop_rgba(haze, 0, 0.80, 0.84, 0.88, 0.42);
    cairo_pattern_add_color_stop_rgba(haze, 1, 0.80, 0.84, 0.88, 0);
    cairo_set_source(cairo, haze);
    cairo_paint(cairo);
    cairo_pattern_destroy(haze);
    cairo_surface_flush(surface);
}

void Painter::LightGround(double sun) {
    if (sun == groundSun_) {
        return;
    }
    const CairoPtr groundContext(cairo_create(ground_.get()));
    cairo_set_source_surface(groundContext.get(), cloudyGround_.get(), 0, 0);
    cairo_paint(groundContext.get());
    cairo_set_source_surface(groundContext.get(), sunnyGround_.get(), 0, 0);
    cairo_paint_with_alpha(groundContext.get(), sun);
    cairo_surface_flush(ground_.get());
    groundSun_ = sun;
}

/// The vehicles in the picture, the farthest first.
Painter::Scene Painter::SceneAt(const std::vector<Vehicle>& vehicles, double second) const {
    Scene visible;
    for (const Vehicle& vehicle : vehicles) {
        const Place place = vehicle.PlaceAt(second);
        const double length = ExtentOf(vehicle.shape).length;
        if (place.z + length > 6.0 && place.z > 3.0 && place.z < maxVisibleDistance) {
            visible.emplace_back(&vehicle, place);
        }
    }
    std::sort(visible.begin(), visible.end(), [](const auto& a, const auto& b) { return a.second.z > b.second.z; });
    return visible;
}

/// A box around the vehicles and their shadows, with room for their motion.
Painter::Box Painter::BoxOf(const Scene& visible) const {
    constexpr double room = 0.5;  // metres
    constexpr double shadow = 2.0;
    Box box{width_, height_, 0, 0};
    for (const auto& [vehicle, place] : visible) {
        const Extent extent = ExtentOf(vehicle->shape);
        for (const double right : {-extent.halfWidth - room, extent.halfWidth + room + shadow}) {
            for (const double up : {0.0, extent.height + room}) {
                for (const double behind : {-room, extent.length + room + shadow}) {
                    const Pixel corner = camera_.Project(OnVehicle(place, right, up, behind));
                    box.left = std::min(box.left, static_cast<int>(std::floor(corner.x)));
                    box.right = std::max(box.right, static_cast<int>(std::ceil(corner.x)));
                    box.top = std::min(box.top, static_cast<int>(std::floor(corner.y)));
                    box.bottom = std::max(box.bottom, static_cast<int>(std::ceil(corner.y)));
                }
            }
        }
    }
    box = {std::max(box.left, 0), std::max(box.top, 0), std::min(box.right, width_), std::min(box.bottom, height_)};
    return {box.left, box.top, std::max(box.left, box.right), std::max(box.top, box.bottom)};
}

/// The number of pixels, and so of drawn steps, that the fastest plate moves during the exposure.
int Painter::StepsOfMotion(const std::vector<Vehicle>& vehicles, double second, double exposure) const {
    constexpr double maxSteps = 4;
    constexpr double belowThePicture = 11.0;
    double maxMove = 0;
    for (const auto& [vehicle, place] : SceneAt(vehicles, second)) {
        const PlateCorners from = PlateCornersAt(*vehicle, vehicle->PlaceAt(second - exposure / 2), camera_);
        const PlateCorners to = PlateCornersAt(*vehicle, vehicle->PlaceAt(second + exposure / 2), camera_);
        if (place.z > belowThePicture) {
            maxMove = std::max(maxMove, std::hypot(to[0].x - from[0].x, to[0].y - from[0].y));
        }
    }
    return static_cast<int>(std::clamp(std::ceil(maxMove), 1.0, maxSteps));
}

void Painter::DrawScene(const Scene& visible, const Light& light, double second) {
    cairo_t* const cairo = context_.get();
    for (const auto& [vehicle, place] : visible) {
        DrawShadow(cairo, camera_, *vehicle, place, light.sun);
    }
    for (const auto& [vehicle, place] : visible) {
        const Box box = BoxOf({{vehicle, place}});
        cairo_save(cairo);
        cairo_rectangle(cairo, box.left, box.top, box.right - box.left, box.bottom - box.top);
        cairo_clip(cairo);
        DrawVehicle(cairo, lettering_, camera_, *vehicle, place, light, second);
        cairo_restore(cairo);
    }
    cairo_surface_flush(scene_.get());
}

/// Draws the lamps of oncoming vehicles and the glow around them.
void Painter::DrawGlow(const Scene& visible, double strength) {
    const CairoPtr glowContext(cairo_create(picture_.get()));
    cairo_t* const cairo = glowContext.get();
    cairo_set_operator(cairo, CAIRO_OPERATOR_ADD);
    for (const auto& [vehicle, place] : visible) {
        if (place.z < 8.0) {
            continue;
        }
        for (const Point& lamp : LampsOf(*vehicle, place)) {
            const Pixel middle = camera_.Project(lamp);
            const double unit = std::abs(camera_.Project(lamp + Point{1, 0, 0}).x - middle.x);
            const double radius = 0.62 * unit;
            cairo_pattern_t* const glow =
                cairo_pattern_create_radial(middle.x, middle.y, 0, middle.x, middle.y, radius);
            cairo_pattern_add_color_stop_rgba(glow, 0.00, 1.0, 0.97, 0.86, 1.00 * strength);
            cairo_pattern_add_color_stop_rgba(glow, 0.16, 1.0, 0.97, 0.86, 0.85 * strength);
            cairo_pattern_add_color_stop_rgba(glow, 0.30, 1.0, 0.95, 0.80, 0.26 * strength);
            cairo_pattern_add_color_stop_rgba(glow, 0.60, 1.0, 0.95, 0.80, 0.08 * strength);
            cairo_pattern_add_color_stop_rgba(glow, 1.00, 1.0, 0.95, 0.80, 0.00);
            cairo_set_source(cairo, glow);
            cairo_arc(cairo, middle.x, middle.y, radius, 0, 6.2832);
            cairo_fill(cairo);
            cairo_pattern_destroy(glow);
        }
    }
    cairo_surface_flush(picture_.get());
}

void Painter::Paint(const std::vector<Vehicle>& vehicles, double second) {
    const Light light = LightAt(second);
    LightGround(light.sun);
    std::uint8_t* const pixels = cairo_image_surface_get_data(scene_.get());
    const std::uint8_t* const groundPixels = cairo_image_surface_get_data(ground_.get());
    const int stride = cairo_image_surface_get_stride(scene_.get());
    const auto rowAt = [stride](int row) { return static_cast<std::size_t>(row) * static_cast<std::size_t>(stride); };
    std::memcpy(pixels, groundPixels, rowAt(height_));
    cairo_surface_mark_dirty(scene_.get());

    const Scene middle = SceneAt(vehicles, second);
    const Box box = BoxOf(middle);
    const int steps = StepsOfMotion(vehicles, second, light.exposure);
    cairo_save(context_.get());
    cairo_rectangle(context_.get(), box.left, box.top, box.right - box.left, box.bottom - box.top);
    cairo_clip(context_.get());
    if (steps == 1) {
        DrawScene(middle, light, second);
    } else {
        // Motion blur: the mean of several moments of the exposure.
        const std::size_t first = static_cast<std::size_t>(box.left) * 4;
        const std::size_t length = static_cast<std::size_t>(box.right - box.left) * 4;
        sums_.resize(length * static_cast<std::size_t>(box.bottom - box.top));
        for (int step = 0; step < steps; ++step) {
            if (step > 0) {
                for (int row = box.top; row < box.bottom; ++row) {
                    std::memcpy(pixels + rowAt(row) + first, groundPixels + rowAt(row) + first, length);
                }
                cairo_surface_mark_dirty(scene_.get());
            }
            const double moment = second + light.exposure * ((step + 0.5) / steps - 0.5);
            DrawScene(SceneAt(vehicles, moment), light, second);
            std::uint16_t* sum = sums_.data();
            for (int row = box.top; row < box.bottom; ++row, sum += length) {
                const std::uint8_t* const drawn = pixels + rowAt(row) + first;
                if (step == 0) {
                    std::copy_n(drawn, length, sum);
                    continue;
                }
                for (std::size_t i = 0; i < length; ++i) {
                    sum[i] = static_cast<std::uint16_t>(sum[i] + drawn[i]);
                }
            }
        }
        const auto share = static_cast<std::uint16_t>(65536 / steps + 1);
        const std::uint16_t* sum = sums_.data();
        for (int row = box.top; row < box.bottom; ++row, sum += length) {
            std::uint8_t* const mean = pixels + rowAt(row) + first;
            for (std::size_t i = 0; i < length; ++i) {
                mean[i] = static_cast<std::uint8_t>((static_cast<std::uint32_t>(sum[i]) * share) >> 16U);
            }
        }
        cairo_surface_mark_dirty(scene_.get());
    }
    cairo_restore(context_.get());

    std::uint8_t* const seen = cairo_image_surface_get_data(picture_.get());
    sensor_.Expose(pixels, stride, light, seen, stride);
    cairo_surface_mark_dirty(picture_.get());
    if (light.lamps > 0) {
        DrawGlow(middle, light.lamps);
    }
    sensor_.AddNoise(seen, stride, light.noise, static_cast<std::uint64_t>(std::llround(second * 1000)));
    cairo_surface_mark_dirty(picture_.get());
}

const std::uint8_t* Painter::Pixels() const {
    return cairo_image_surface_get_data(picture_.get());
}

int Painter::Stride() const {
    return cairo_image_surface_get_stride(picture_.get());
}

void Painter::SavePicture(const std::filesystem::path& file) const {
    if (cairo_surface_write_to_png(picture_.get(), file.string().c_str()) != CAIRO_STATUS_SUCCESS) {
        throw std::runtime_error("cannot write \"" + file.string() + "\"");
    }
}

}  // namespace road_clip
