#include "reference/reader/plate_detector.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

namespace plate_reading {
namespace {

// The character heights that a scale is used for, in its own pixels; the scales together cover all heights. The largest
// scale also finds smaller characters, the smallest larger ones. The network was trained on 6.5 to 32 pixels.
constexpr HeightRange scaleHeights = {7.5f, 17.f};

// A frame wider than `wideFrame` is scaled by `wideScale`, and further if it is still wider than `maxSearchWidth`: most
// of the time is spent on the largest scale, and characters that are lost by this are too small for the reader.
constexpr float maxSearchWidth = 1280;
constexpr float wideFrame = 960;
constexpr float wideScale = 0.75f;
constexpr float leastLinearScale = 0.6f;
constexpr int minWidth = 48;
constexpr int minHeight = 24;

constexpr float minScore = 0.35f;

// The network has numbers for each cell; those of `blockSide` x `blockSide` cells are channels of one output position.
constexpr int blockSide = 2;

// The units of the network's output, as in training/scene_drawing.py.
constexpr int cell = 8;
constexpr float sideScale = 32;
constexpr float offsetScale = 8;
constexpr float heightUnit = 14;
constexpr float slopeScale = 0.25f;

int RoundUp(int value) {
    constexpr int block = cell * blockSide;
    return (value + block - 1) / block * block;
}

cv::Mat Resized(const cv::Mat& grey, float scale) {
    const cv::Size size(static_cast<int>(static_cast<float>(grey.cols) * scale),
                        static_cast<int>(static_cast<float>(grey.rows) * scale));
    if (size == grey.size() || size.empty()) {
        return grey;
    }
    cv::Mat resized;
    // Two neighbouring pixels are enough for a little less than full size, and take a sixth of the time of all.
    cv::resize(grey, resized, size, 0, 0, scale > leastLinearScale && scale < 1 ? cv::INTER_LINEAR : cv::INTER_AREA);
    return resized;
}

/// Merges the cells of each row into one row: the mean of the best cell and those that agree with it.
std::vector<TextRow> Merge(std::vector<TextRow> cells) {
    std::sort(cells.begin(), cells.end(), [](const TextRow& a, const TextRow& b) { return a.score > b.score; });
    std::vector<bool> used(cells.size(), false);
    std::vector<TextRow> rows;
    for (std::size_t first = 0; first < cells.size(); ++first) {
        if (used[first]) {
            continue;
        }
        const cv::Rect2f box = cells[first].Box();
        TextRow sum{};
        float logHeight = 0;
        float weights = 0;
        for (std::size_t other = first; other < cells.size(); ++other) {
            if (used[other]) {
                continue;
            }
            const TextRow& row = cells[other];
            const cv::Rect2f otherBox = row.Box();
            const float agreement = IntersectionOverUnion(box, otherBox);
            if (agreement <= 0.3f && Overlap(box, otherBox) <= 0.6f) {
                continue;
            }
            used[other] = true;
            if (agreement > 0.45f) {
                const float weight = row.score * row.score;
                weights += weight;
                sum.centre += weight * row.centre;
                sum.width += weight * row.width;
                sum.slope += weight * row.slope;
                logHeight += weight * std::log(row.height);
            }
        }
        TextRow row = cells[first];
        if (weights > 0) {
            row = {sum.centre / weights, sum.width / weights, std::exp(logHeight / weights), sum.slope / weights,
                   cells[first].score};
        }
        rows.push_back(row);
    }
    return rows;
}

}  // namespace

PlateDetector::PlateDetector(const std::vector<unsigned char>& network) {
    for (cv::dnn::Net& level : networks_) {
        level = cv::dnn::readNetFromONNX(network);
    }
}

void PlateDetector::FindAtScale(cv::dnn::Net& network, const cv::Mat& scaled, float scale,
                                std::vector<TextRow>& cells) const {
    cv::Mat whole;
    cv::copyMakeBorder(scaled, whole, 0, RoundUp(scaled.rows) - scaled.rows, 0, RoundUp(scaled.cols) - scaled.cols,
                       cv::BORDER_REPLICATE);
    network.setInput(cv::dnn::blobFromImage(whole, 1 / 64.0, cv::Size(), cv::Scalar(128)));
    const cv::Mat output = network.forward();
    const int rows = output.size[2] * blockSide;
    const int columns = output.size[3] * blockSide;
    const auto number = [&](int which, int y, int x) {
        const int channel = (which * blockSide + y % blockSide) * blockSide + x % blockSide;
        return output.ptr<float>(0, channel)[y / blockSide * output.size[3] + x / blockSide];
    };

    const float minLogit = std::log(minScore / (1 - minScore));
    for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < columns; ++x) {
            const float logit = number(0, y, x);
            if (logit < minLogit) {
                continue;
            }
            const float cellX = static_cast<float>(x * cell + cell / 2);
            const float cellY = static_cast<float>(y * cell + cell / 2);
            const float left = cellX - sideScale * number(1, y, x);
            const float right = cellX + sideScale * number(2, y, x);
            const float height = heightUnit * std::exp(std::clamp(number(4, y, x), -2.f, 2.f));
            const float slope = slopeScale * number(5, y, x);
            if (right - left < height) {
                continue;
            }
            const float centreX = (left + right) / 2;
            const float centreY = cellY + offsetScale * number(3, y, x) + slope * (centreX - cellX);
            cells.push_back({cv::Point2f(centreX, centreY) / scale, (right - left) / scale, height / scale, slope,
                             1 / (1 + std::exp(-logit))});
        }
    }
}

std::vector<TextRow> PlateDetector::Find(const cv::Mat& grey, const HeightRange& heights,
                                         std::optional<int> wholeWidth) {
    std::vector<TextRow> cells;
    const auto width = static_cast<float>(wholeWidth.value_or(grey.cols));
    float scale = std::min(width > wideFrame ? wideScale : 1.f, maxSearchWidth / width);
    cv::Mat scaled = Resized(grey, scale);
    for (std::size_t level = 0; level < levels; ++level) {
        if (scaled.cols < minWidth || scaled.rows < minHeight) {
            break;
        }
        const bool largest = level == 0;
        const bool smallest = level + 1 == levels;
        const bool needed = (largest || heights.maximum > scaleHeights.minimum / scale) &&
                            (smallest || heights.minimum < scaleHeights.maximum / scale);
        if (needed) {
            FindAtScale(networks_[level], scaled, scale, cells);
        }
        scaled = Resized(scaled, 0.5f);
        scale /= 2;
    }
    return Merge(std::move(cells));
}

}  // namespace plate_reading
