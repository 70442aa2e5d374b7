#include "tests/reference/reader/plate_picture.h"

#include <cairo.h>

#include <opencv2/imgproc.hpp>

namespace plate_reading_test {

cv::Mat DrawStreet(int width, int height) {
    cv::Mat cells(9, 16, CV_8UC3);
    cv::theRNG().state = 11;
    cv::randu(cells, 60, 130);
    cv::Mat street;
    cv::resize(cells, street, cv::Size(width, height), 0, 0, cv::INTER_CUBIC);
    return street;
}

double DrawPlate(cv::Mat& picture, const DrawnPlate& plate) {
    cv::Mat colours;
    cv::cvtColor(picture, colours, cv::COLOR_BGR2BGRA);
    cairo_surface_t* const surface = cairo_image_surface_create_for_data(colours.data, CAIRO_FORMAT_RGB24, colours.cols,
                                                                         colours.rows, static_cast<int>(colours.step));
    cairo_t* const drawing = cairo_create(surface);
    cairo_translate(drawing, plate.x, plate.y);
    cairo_rotate(drawing, plate.turn);
    // A typeface that scripts/setup installs: where one is missing, another one of other widths is drawn.
    cairo_select_font_face(drawing, "Roboto Condensed", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
    cairo_set_font_size(drawing, plate.characterHeight / 0.711);
    cairo_text_extents_t extents;
    cairo_text_extents(drawing, plate.text.c_str(), &extents);
    const double margin = 0.45 * plate.characterHeight;
    const double width = extents.width + 2 * margin;
    const double height = plate.characterHeight + 1.2 * margin;
    cairo_rectangle(drawing, -width / 2, -height / 2, width, height);
    cairo_set_source_rgb(drawing, 0.93, 0.93, 0.9);
    cairo_fill(drawing);
    cairo_move_to(drawing, -extents.width / 2 - extents.x_bearing, plate.characterHeight / 2);
    cairo_set_source_rgb(drawing, 0.1, 0.1, 0.12);
    cairo_show_text(drawing, plate.text.c_str());
    cairo_destroy(drawing);
    cairo_surface_flush(surface);
    cairo_surface_destroy(surface);
    cv::cvtColor(colours, picture, cv::COLOR_BGRA2BGR);
    return extents.width;
}

plate_reading::Picture AsPicture(const cv::Mat& picture) {
    return {picture.data, picture.cols, picture.rows, picture.step};
}

}  // namespace plate_reading_test
