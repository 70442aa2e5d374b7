#include "reference/reader/row_finder.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include <opencv2/imgproc.hpp>

namespace plate_reading {
namespace {

// The frame is searched at about this width.
constexpr double workingWidth = 800;
constexpr double maxScale = 2;

constexpr int minHeight = 7;  // pixels of the scaled frame
constexpr int maxHeight = 120;
constexpr std::size_t minCharacters = 3;
constexpr std::size_t maxCharacters = 14;
constexpr float maxSlope = 0.5f;

/// Spots of a character's shape, from left to right.
std::vector<cv::Rect> FindSpots(const cv::Mat& grey, int window, bool light) {
    cv::Mat binary;
    cv::adaptiveThreshold(grey, binary, 255, cv::ADAPTIVE_THRESH_MEAN_C,
                          light ? cv::THRESH_BINARY : cv::THRESH_BINARY_INV, window, light ? -9 : 9);
    cv::Mat labels;
    cv::Mat statistics;
    cv::Mat centres;
    const int count = cv::connectedComponentsWithStats(binary, labels, statistics, centres, 8, CV_32S);
    std::vector<cv::Rect> spots;
    for (int i = 1; i < count; ++i) {
        const cv::Rect box(statistics.at<int>(i, cv::CC_STAT_LEFT), statistics.at<int>(i, cv::CC_STAT_TOP),
                           statistics.at<int>(i, cv::CC_STAT_WIDTH), statistics.at<int>(i, cv::CC_STAT_HEIGHT));
        // A larger character is as light inside as its threshold window and breaks into parts.
        if (box.height < minHeight || box.height > maxHeight || box.height * 10 > window * 32) {
            continue;
        }
        const float aspect = static_cast<float>(box.width) / static_cast<float>(box.height);
        const int area = statistics.at<int>(i, cv::CC_STAT_AREA);
        if (aspect < 0.08f || aspect > 1.3f || area * 100 < box.area() * 15) {
            continue;
        }
        spots.push_back(box);
    }
    std::sort(spots.begin(), spots.end(), [](const cv::Rect& a, const cv::Rect& b) { return a.x < b.x; });
    return spots;
}

/// REQUIRES: `b` is to the right of `a`.
bool AreNeighbours(const cv::Rect& a, const cv::Rect& b) {
    const auto heightA = static_cast<float>(a.height);
    const auto heightB = static_cast<float>(b.height);
    if (static_cast<float>(b.x - a.x - a.width) > heightA * 1.3f ||
        std::abs(heightA - heightB) > 0.28f * std::max(heightA, heightB)) {
        return false;
    }
    const float down = static_cast<float>(a.y) + heightA / 2 - static_cast<float>(b.y) - heightB / 2;
    return std::abs(down) <= 0.35f * static_cast<float>(b.x - a.x) && std::abs(down) <= 0.6f * heightA;
}

/// The sets of spots that are connected through neighbours.
std::vector<std::vector<cv::Rect>> Join(const std::vector<cv::Rect>& spots) {
    std::vector<std::size_t> parents(spots.size());
    std::iota(parents.begin(), parents.end(), std::size_t{0});
    const auto root = [&](std::size_t i) {
        while (parents[i] != i) {
            i = parents[i] = parents[parents[i]];
        }
        return i;
    };
    for (std::size_t i = 0; i < spots.size(); ++i) {
        const float reach = static_cast<float>(spots[i].height) * 2.6f;
        for (std::size_t j = i + 1; j < spots.size() && static_cast<float>(spots[j].x - spots[i].x) <= reach; ++j) {
            if (AreNeighbours(spots[i], spots[j])) {
                parents[root(i)] = root(j);
            }
        }
    }
    std::vector<std::vector<cv::Rect>> sets(spots.size());
    for (std::size_t i = 0; i < spots.size(); ++i) {
        sets[root(i)].push_back(spots[i]);
    }
    std::erase_if(sets, [](const auto& set) { return set.size() < minCharacters || set.size() > maxCharacters; });
    return sets;
}

/// Returns a row of width 0 if the spots are not in a line.
TextRow MakeRow(const std::vector<cv::Rect>& spots) {
    float left = static_cast<float>(spots.front().x);
    float right = left;
    std::vector<float> heights;
    std::vector<cv::Point2f> centres;
    for (const cv::Rect& spot : spots) {
        left = std::min(left, static_cast<float>(spot.x));
        right = std::max(right, static_cast<float>(spot.x + spot.width));
        heights.push_back(static_cast<float>(spot.height));
        centres.emplace_back(static_cast<float>(spot.x) + static_cast<float>(spot.width) / 2,
                             static_cast<float>(spot.y) + static_cast<float>(spot.height) / 2);
    }
    const auto median = heights.begin() + static_cast<std::ptrdiff_t>(heights.size() / 2);
    std::nth_element(heights.begin(), median, heights.end());
    cv::Vec4f line;
    cv::fitLine(centres, line, cv::DIST_L2, 0, 0.01, 0.01);
    const float slope = std::abs(line[0]) > 1e-3f ? line[1] / line[0] : 0;
    if (std::abs(slope) > maxSlope || right - left < 2 * *median) {
        return {};
    }
    const float centre = (left + right) / 2;
    return {cv::Point2f(centre, line[3] + slope * (centre - line[2])), right - left, *median, slope,
            static_cast<float>(std::min(spots.size(), std::size_t{8}))};
}

}  // namespace

std::vector<TextRow> FindRows(const cv::Mat& grey, const HeightRange& heights, std::size_t maxRows) {
    const double scale = std::min(maxScale, workingWidth / grey.cols);
    cv::Mat searched = grey;
    if (grey.cols > workingWidth || grey.cols <= workingWidth / 2) {
        cv::resize(grey, searched, cv::Size(), scale, scale, scale < 1 ? cv::INTER_AREA : cv::INTER_CUBIC);
    }
    const float scaled = static_cast<float>(searched.cols) / static_cast<float>(grey.cols);

    std::vector<TextRow> rows;
    for (const int window : {15, 35}) {
        for (const bool light : {false, true}) {
            for (const std::vector<cv::Rect>& spots : Join(FindSpots(searched, window, light))) {
                TextRow row = MakeRow(spots);
                row.centre /= scaled;
                row.width /= scaled;
                row.height /= scaled;
                if (row.width > 0 && row.height >= heights.minimum && row.height <= heights.maximum) {
                    rows.push_back(row);
                }
            }
        }
    }
    std::sort(rows.begin(), rows.end(), [](const TextRow& a, const TextRow& b) {
        return a.score != b.score ? a.score > b.score : a.width * a.height > b.width * b.height;
    });
    std::vector<TextRow> kept;
    for (const TextRow& row : rows) {
        const bool isDuplicate = std::any_of(kept.begin(), kept.end(), [&](const TextRow& other) {
            return IntersectionOverUnion(row.Box(), other.Box()) > 0.6f;
        });
        if (!isDuplicate) {
            kept.push_back(row);
        }
        if (kept.size() >= maxRows) {
            break;
        }
    }
    return kept;
}

}  // namespace plate_reading
