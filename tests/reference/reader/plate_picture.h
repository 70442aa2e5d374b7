/// Pictures of plates, drawn for tests.
#pragma once

#include <string>

#include <opencv2/core.hpp>

#include "reference/reader/frame_reader.h"

namespace plate_reading_test {

struct DrawnPlate {
    std::string text;
    double x = 0;  ///< the text's centre, pixels
    double y = 0;
    double characterHeight = 16;
    double turn = 0;  ///< radians, clockwise
};

/// A grey street with no plate on it; the same each time.
cv::Mat DrawStreet(int width, int height);

/// Draws a white plate with dark text, and returns the text's width in pixels.
double DrawPlate(cv::Mat& picture, const DrawnPlate& plate);

/// Returns a view for the reader; `picture` must outlive it.
plate_reading::Picture AsPicture(const cv::Mat& picture);

}  // namespace plate_reading_test
