#include "reference/reader/text_row.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <opencv2/imgproc.hpp>

namespace plate_reading {
namespace {

// Tolerance for inexact ends of the row, in character heights, for both sides together.
constexpr float tolerance = 0.1f;

constexpr float epsilon = 1e-6f;

}  // namespace

cv::Rect2f TextRow::Box() const {
    const float boxHeight = height + std::abs(slope) * width;
    return {centre.x - width / 2, centre.y - boxHeight / 2, width, boxHeight};
}

float Overlap(const cv::Rect2f& a, const cv::Rect2f& b) {
    return (a & b).area() / (std::min(a.area(), b.area()) + epsilon);
}

float IntersectionOverUnion(const cv::Rect2f& a, const cv::Rect2f& b) {
    const float common = (a & b).area();
    return common / (a.area() + b.area() - common + epsilon);
}

float CutWidth(const TextRow& row, float margin) {
    return row.width * (1 + 2 * margin) + row.height * tolerance;
}

cv::Mat CutRow(const cv::Mat& grey, const TextRow& row, float fill, float margin, cv::Size size) {
    const float height = row.height / fill;
    const float width = CutWidth(row, margin);
    const float rise = row.slope * width / 2;
    const cv::Point2f c = row.centre;
    std::array<cv::Point2f, 3> from = {cv::Point2f(c.x - width / 2, c.y - rise - height / 2),
                                       cv::Point2f(c.x + width / 2, c.y + rise - height / 2),
                                       cv::Point2f(c.x - width / 2, c.y - rise + height / 2)};
    const std::array<cv::Point2f, 3> to = {cv::Point2f(0, 0), cv::Point2f(static_cast<float>(size.width), 0),
                                           cv::Point2f(0, static_cast<float>(size.height))};

    // Shrinking must average more than four pixels for one; otherwise fine detail becomes noise.
    const float acrossScale = width / static_cast<float>(size.width);
    const float downScale = height / static_cast<float>(size.height);
    cv::Mat source = grey;
    if (std::max(acrossScale, downScale) > 1.6f) {
        const float shrink = 1 / std::max(1.f, std::min(acrossScale, downScale));
        const float reach = height / 2 + std::abs(rise);
        cv::Rect part(static_cast<int>(std::floor(c.x - width / 2)) - 4, static_cast<int>(std::floor(c.y - reach)) - 4,
                      static_cast<int>(std::ceil(width)) + 8, static_cast<int>(std::ceil(2 * reach)) + 8);
        part &= cv::Rect(0, 0, grey.cols, grey.rows);
        if (part.width < 4 || part.height < 4) {
            return cv::Mat(size, CV_8U, cv::Scalar(0));
        }
        cv::resize(grey(part), source, cv::Size(), static_cast<double>(shrink), static_cast<double>(shrink),
                   cv::INTER_AREA);
        for (cv::Point2f& point : from) {
            point = (point - cv::Point2f(static_cast<float>(part.x), static_cast<float>(part.y))) * shrink;
        }
    }
    cv::Mat cut;
    cv::warpAffine(source, cut, cv::getAffineTransform(from.data(), to.data()), size, cv::INTER_LINEAR,
                   cv::BORDER_REPLICATE);
    return cut;
}

}  // namespace plate_reading
