#include "tests/reading_faults/plate_frame.h"

#include <cairo.h>

#include <algorithm>

namespace reading_faults {

std::vector<std::uint8_t> DrawPlateFrame() {
    cairo_surface_t* const surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, frameWidth, frameHeight);
    cairo_t* const drawing = cairo_create(surface);
    cairo_set_source_rgb(drawing, 0.4, 0.4, 0.4);
    cairo_paint(drawing);
    cairo_select_font_face(drawing, "DejaVu Sans Condensed", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
    cairo_set_font_size(drawing, 32);
    double y = 60;
    for (const char* const text : {"AB123CD", "KLM4567"}) {
        cairo_rectangle(drawing, 100, y, 200, 44);
        cairo_set_source_rgb(drawing, 0.93, 0.93, 0.93);
        cairo_fill(drawing);
        cairo_move_to(drawing, 125, y + 34);
        cairo_set_source_rgb(drawing, 0.1, 0.1, 0.1);
        cairo_show_text(drawing, text);
        y += 180;
    }
    cairo_destroy(drawing);
    cairo_surface_flush(surface);
    const unsigned char* const pixels = cairo_image_surface_get_data(surface);
    const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(surface));
    std::vector<std::uint8_t> frame(std::size_t{frameWidth} * frameHeight * 3 / 2, 128);
    for (std::size_t row = 0; row < frameHeight; ++row) {
        for (std::size_t column = 0; column < frameWidth; ++column) {
            frame[row * frameWidth + column] = pixels[row * stride + 4 * column];
        }
    }
    cairo_surface_destroy(surface);
    return frame;
}

}  // namespace reading_faults
