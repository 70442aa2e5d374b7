/// Finds rows of characters without a network: dark or light spots of a character's shape in a line.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "reference/reader/plate_detector.h"
#include "reference/reader/text_row.h"

namespace plate_reading {

/// Returns at most `maxRows` rows, those with the most characters first; the score is the number of characters, up
/// to 8. `grey` has 8 bits. Throws cv::Exception.
std::vector<TextRow> FindRows(const cv::Mat& grey, const HeightRange& heights, std::size_t maxRows);

}  // namespace plate_reading
