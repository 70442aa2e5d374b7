/// A row of characters in a frame.
#pragma once

#include <opencv2/core.hpp>

namespace plate_reading {

/// Lengths in pixels of the frame.
struct TextRow {
    cv::Point2f centre;
    float width = 0;   ///< from the first character's left to the last one's right, measured along x
    float height = 0;  ///< of the characters
    float slope = 0;   ///< y over x
    float score = 0;   ///< how likely this is a plate's row; comparable among rows from the same finder

    /// The upright box around it.
    cv::Rect2f Box() const;
};

/// The share of the smaller box that both have in common, 0 to 1.
float Overlap(const cv::Rect2f& a, const cv::Rect2f& b);

/// The intersection's share of the union, 0 to 1.
float IntersectionOverUnion(const cv::Rect2f& a, const cv::Rect2f& b);

/// Cuts out the row along its slope and scales it to `size`: characters fill `fill` (0 to 1) of the height, `margin` of
/// the row's width is added on each side. `grey` has 8 bits; its edge pixels are replicated.
cv::Mat CutRow(const cv::Mat& grey, const TextRow& row, float fill, float margin, cv::Size size);

/// The width that CutRow cuts out, in pixels of the frame along x.
float CutWidth(const TextRow& row, float margin);

}  // namespace plate_reading
