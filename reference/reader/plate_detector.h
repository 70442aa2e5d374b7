/// The network that finds rows of plate characters.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>

#include "reference/reader/text_row.h"

namespace plate_reading {

/// The range of character heights to find, in pixels of the frame.
struct HeightRange {
    float minimum = 0;
    float maximum = 0;
};

/// One thread at a time.
class PlateDetector {
  public:
    /// `network` is the content of an ONNX file. Throws cv::Exception.
    explicit PlateDetector(const std::vector<unsigned char>& network);

    /// Returns the rows found, the best first; scores are 0 to 1. `grey` has 8 bits; if it is a part of a picture, the
    /// scales are those of that picture, which is `wholeWidth` wide. Throws cv::Exception.
    std::vector<TextRow> Find(const cv::Mat& grey, const HeightRange& heights, std::optional<int> wholeWidth = {});

  private:
    static constexpr std::size_t levels = 3;

    void FindAtScale(cv::dnn::Net& network, const cv::Mat& scaled, float scale, std::vector<TextRow>& cells) const;

    // One for each scale, because OpenCV prepares a network again whenever the size of its input changes.
    std::array<cv::dnn::Net, levels> networks_;
};

}  // namespace plate_reading
