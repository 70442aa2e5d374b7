/// Draws the road and the vehicles on it, as a camera sees them.
#pragma once

#include <cairo.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <utility>
#include <vector>

#include "tools/clip/lettering.h"
#include "tools/clip/light.h"
#include "tools/clip/sensor.h"
#include "tools/clip/traffic.h"

namespace road_clip {

struct CairoDeleter {
    void operator()(cairo_t* context) const { cairo_destroy(context); }
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using CairoPtr = std::unique_ptr<cairo_t, CairoDeleter>;
using SurfacePtr = std::unique_ptr<cairo_surface_t, CairoDeleter>;

/// Draws the picture: 4 bytes per pixel, blue, green, red, unused (on little-endian machines). One thread at a time.
class Painter {
  public:
    Painter(int width, int height, std::uint64_t seed);

    /// Draws one frame over the last one; `second` is the middle of its exposure.
    void Paint(const std::vector<Vehicle>& vehicles, double second);

    const std::uint8_t* Pixels() const;
    int Stride() const;
    void SavePicture(const std::filesystem::path& file) const;

  private:
    /// Pixels; right and bottom are outside.
    struct Box {
        int left = 0;
        int top = 0;
        int right = 0;
        int bottom = 0;
    };
    using Scene = std::vector<std::pair<const Vehicle*, Place>>;

    void PaintGround(cairo_surface_t* ground, std::uint64_t seed, double sun);
    void LightGround(double sun);
    Scene SceneAt(const std::vector<Vehicle>& vehicles, double second) const;
    Box BoxOf(const Scene& scene) const;
    int StepsOfMotion(const std::vector<Vehicle>& vehicles, double second, double exposure) const;
    void DrawScene(const Scene& scene, const Light& light, double second);
    void DrawGlow(const Scene& scene, double strength);

    Camera camera_;
    int width_;
    int height_;
    Lettering lettering_;
    Sensor sensor_;
    SurfacePtr sunnyGround_;
    SurfacePtr cloudyGround_;
    SurfacePtr ground_;
    double groundSun_ = -1;
    SurfacePtr scene_;
    CairoPtr context_;
    SurfacePtr picture_;
    std::vector<std::uint16_t> sums_;
};

}  // namespace road_clip
