/// A row of characters in a picture.
#pragma once

#include <opencv2/core.hpp>

namespace plate_reading {

/// Lengths in pixels of the picture.
struct TextRow {
    cv::Point2f centre;
    float width = 0;   ///< from the first character's left to the last one's right, measured along x
    float height = 0;  ///< of the characters
    float slope = 0;   ///< y over x
    float score = 0;   ///< how likely this is a plate's row; comparable among rows from the same finder

    /// The upright box around it.
    cv::Rect2f Box() const;
};

/// The common area's share of the smaller box, 0 to 1.
float Overlap(const cv::Rect2f& a, const cv::Rect2f& b);

/// The common area's share of both boxes' area, 0 to 1.
float IntersectionOverUnion(const cv::Rect2f& a, const cv::Rect2f& b);

/// The row cut out along its slope and scaled to `size`: characters fill `fill` (0 to 1) of the height, `margin` of the
/// row's width is added on each side. `grey` has 8 bits; the picture's edge is continued.
cv::Mat CutRow(const cv::Mat& grey, const TextRow& row, float fill, float margin, cv::Size size);

/// The pixels of the picture, along x, that the cut of CutRow covers.
float CutWidth(const TextRow& row, float margin);

}  // namespace plate_reading
