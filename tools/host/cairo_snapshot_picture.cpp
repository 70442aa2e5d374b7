#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>

#include "tools/host/failure.h"
#include "tools/host/snapshot_picture.h"

namespace plate_host {
namespace {

struct SurfaceDeleter {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};

struct ContextDeleter {
    void operator()(cairo_t* context) const { cairo_destroy(context); }
};

using Surface = std::unique_ptr<cairo_surface_t, SurfaceDeleter>;
using Context = std::unique_ptr<cairo_t, ContextDeleter>;

constexpr int linesPerUnit = 540;  // picture rows for each pixel of line thickness
constexpr double fullTurn = 6.283185307179586;

void Require(cairo_status_t status) {
    if (status != CAIRO_STATUS_SUCCESS) {
        throw Failure(std::string("cannot draw a snapshot: ") + cairo_status_to_string(status));
    }
}

std::uint32_t ToSample(double value) {
    return static_cast<std::uint32_t>(std::lround(std::clamp(value, 0.0, 255.0)));
}

std::uint32_t ToPixel(double luminance, double blueDifference, double redDifference) {
    const std::uint32_t red = ToSample(luminance + 1.402 * redDifference);
    const std::uint32_t green = ToSample(luminance - 0.344136 * blueDifference - 0.714136 * redDifference);
    const std::uint32_t blue = ToSample(luminance + 1.772 * blueDifference);
    return red << 16 | green << 8 | blue;
}

/// Converts the picture as the library does: luminance and colour differences have the full range.
Surface ToSurface(const Picture& picture) {
    const auto width = static_cast<int>(picture.width);
    const auto height = static_cast<int>(picture.height);
    Surface surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height));
    Require(cairo_surface_status(surface.get()));
    unsigned char* const pixels = cairo_image_surface_get_data(surface.get());
    const int stride = cairo_image_surface_get_stride(surface.get());
    const std::size_t luminanceSize = std::size_t{picture.width} * picture.height;
    const std::uint8_t* const luminances = picture.bytes.get();
    const std::uint8_t* const blues = luminances + luminanceSize;
    const std::uint8_t* const reds = blues + luminanceSize / 4;
    const bool hasColour = picture.size > luminanceSize;
    for (std::size_t y = 0; y < picture.height; ++y) {
        auto* const row = reinterpret_cast<std::uint32_t*>(pixels + static_cast<std::ptrdiff_t>(y) * stride);
        for (std::size_t x = 0; x < picture.width; ++x) {
            const std::size_t colour = y / 2 * (picture.width / 2) + x / 2;
            row[x] = ToPixel(luminances[y * picture.width + x], hasColour ? blues[colour] - 128.0 : 0,
                             hasColour ? reds[colour] - 128.0 : 0);
        }
    }
    cairo_surface_mark_dirty(surface.get());
    return surface;
}

/// Limits a coordinate to the range that the drawing library can compute with.
double Bounded(std::int32_t coordinate) {
    constexpr std::int32_t limit = 100000;
    return std::clamp(coordinate, -limit, limit);
}

class Pen {
  public:
    Pen(cairo_surface_t* surface, const Picture& picture)
        : context_(cairo_create(surface)),
          width_(picture.width),
          height_(picture.height),
          unit_(std::max(1.0, std::round(static_cast<double>(picture.height) / linesPerUnit))) {
        Require(cairo_status(context_.get()));
        cairo_select_font_face(context_.get(), "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
        cairo_set_font_size(context_.get(), 14 * unit_);
    }

    void Draw(const SnapshotTarget& target) {
        cairo_save(context_.get());
        if (target.plate) {
            ClipOut(*target.plate);
        }
        DrawTrack(target.track);
        cairo_restore(context_.get());
        if (target.plate) {
            DrawBorder(*target.plate);
        }
        if (!target.label.empty()) {
            DrawLabel(target.label, target.plate);
        }
        Require(cairo_status(context_.get()));
    }

  private:
    void ClipOut(const SnapshotBox& plate) {
        cairo_new_path(context_.get());
        cairo_rectangle(context_.get(), 0, 0, width_, height_);
        cairo_rectangle(context_.get(), Bounded(plate.left), Bounded(plate.top),
                        Bounded(plate.right) - Bounded(plate.left), Bounded(plate.bottom) - Bounded(plate.top));
        cairo_set_fill_rule(context_.get(), CAIRO_FILL_RULE_EVEN_ODD);
        cairo_clip(context_.get());
    }

    void DrawTrack(const std::vector<SnapshotPoint>& track) {
        const auto middle = [](std::int32_t coordinate) { return Bounded(coordinate) + 0.5; };
        cairo_set_source_rgb(context_.get(), 1, 0.8, 0);
        cairo_new_path(context_.get());
        for (const SnapshotPoint& point : track) {
            cairo_line_to(context_.get(), middle(point.x), middle(point.y));
        }
        cairo_set_line_width(context_.get(), unit_);
        cairo_stroke(context_.get());
        for (const SnapshotPoint& point : track) {
            cairo_new_path(context_.get());
            cairo_arc(context_.get(), middle(point.x), middle(point.y), 2.5 * unit_, 0, fullTurn);
            cairo_fill(context_.get());
        }
    }

    void DrawBorder(const SnapshotBox& plate) {
        const double thickness = BorderThickness();
        const double left = Bounded(plate.left) - thickness / 2;
        const double top = Bounded(plate.top) - thickness / 2;
        cairo_new_path(context_.get());
        cairo_rectangle(context_.get(), left, top, Bounded(plate.right) + thickness / 2 - left,
                        Bounded(plate.bottom) + thickness / 2 - top);
        cairo_set_source_rgb(context_.get(), 0, 1, 0);
        cairo_set_line_width(context_.get(), thickness);
        cairo_set_line_join(context_.get(), CAIRO_LINE_JOIN_MITER);
        cairo_stroke(context_.get());
    }

    /// Above the plate, below it if there is no room, in the upper left corner without a plate; inside the picture.
    void DrawLabel(const std::string& label, const std::optional<SnapshotBox>& plate) {
        cairo_font_extents_t font{};
        cairo_font_extents(context_.get(), &font);
        cairo_text_extents_t text{};
        cairo_text_extents(context_.get(), label.c_str(), &text);
        const double margin = 3 * unit_;
        const double boxWidth = text.x_advance + 2 * margin;
        const double boxHeight = font.ascent + font.descent + 2 * unit_;
        double left = 0;
        double top = 0;
        if (plate) {
            const double distance = BorderThickness() + unit_;
            left = Bounded(plate->left) - BorderThickness();
            top = Bounded(plate->top) - distance - boxHeight;
            if (top < 0) {
                top = Bounded(plate->bottom) + distance;
            }
        }
        left = std::max(0.0, std::min(left, width_ - boxWidth));
        top = std::max(0.0, std::min(top, height_ - boxHeight));
        cairo_new_path(context_.get());
        cairo_rectangle(context_.get(), left, top, boxWidth, boxHeight);
        cairo_set_source_rgb(context_.get(), 0, 0, 0);
        cairo_fill(context_.get());
        cairo_set_source_rgb(context_.get(), 1, 1, 1);
        cairo_move_to(context_.get(), left + margin, top + unit_ + font.ascent);
        cairo_show_text(context_.get(), label.c_str());
    }

    double BorderThickness() const { return 2 * unit_; }

    const Context context_;
    const double width_;
    const double height_;
    const double unit_;  ///< a whole number, so that edges are sharp
};

cairo_status_t Append(void* bytes, const unsigned char* data, unsigned int size) {
    try {
        static_cast<std::string*>(bytes)->append(data, data + size);
    } catch (...) {
        return CAIRO_STATUS_NO_MEMORY;
    }
    return CAIRO_STATUS_SUCCESS;
}

}  // namespace

void RequireSnapshotSupport() {}

std::string DrawSnapshot(const Picture& picture, const std::vector<SnapshotTarget>& targets) {
    const Surface surface = ToSurface(picture);
    Pen pen(surface.get(), picture);
    for (const SnapshotTarget& target : targets) {
        pen.Draw(target);
    }
    std::string bytes;
    Require(cairo_surface_write_to_png_stream(surface.get(), Append, &bytes));
    return bytes;
}

}  // namespace plate_host
