/// Draws the road and the vehicles on it.
#pragma once

#include <cairo.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tools/clip/traffic.h"

namespace road_clip {

struct CairoDeleter {
    void operator()(cairo_t* context) const { cairo_destroy(context); }
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using CairoPtr = std::unique_ptr<cairo_t, CairoDeleter>;
using SurfacePtr = std::unique_ptr<cairo_surface_t, CairoDeleter>;

/// The picture: 4 bytes a pixel, blue, green, red, unused on the machines that we build for. One thread at a time.
class Painter {
  public:
    Painter(int width, int height, std::uint64_t seed);

    /// Draws one frame over the last one.
    void Paint(const std::vector<Vehicle>& vehicles, double second);

    const std::uint8_t* Pixels() const;
    int Stride() const;
    void SavePicture(const std::filesystem::path& file) const;

  private:
    void PaintGround(std::uint64_t seed);

    Camera camera;
    int width;
    int height;
    SurfacePtr ground;
    SurfacePtr picture;
    CairoPtr context;
};

}  // namespace road_clip
