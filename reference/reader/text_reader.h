/// The network that reads the text of a row.
#pragma once

#include <span>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>

#include "reference/reader/column_scores.h"
#include "reference/reader/text_row.h"

namespace plate_reading {

struct RowText {
    TextRow row;  ///< from the first character read to the last
    DecodedText decoded;
    ColumnScores scores;
};

/// One thread at a time.
class TextReader {
  public:
    /// `network` is the content of an ONNX file. Throws cv::Exception.
    explicit TextReader(const std::vector<unsigned char>& network);

    /// Reads the row, and if useful again at the exact place of the text; with `isThorough` also a little above and
    /// below it. `grey` has 8 bits. Throws cv::Exception.
    RowText Read(const cv::Mat& grey, const TextRow& row, bool isThorough);

  private:
    RowText ReadOnce(const cv::Mat& grey, const TextRow& row, float margin, std::span<const float> fills);

    cv::dnn::Net network_;
};

}  // namespace plate_reading
