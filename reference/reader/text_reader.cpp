#include "reference/reader/text_reader.h"

#include <algorithm>
#include <array>

#include <opencv2/imgproc.hpp>

namespace plate_reading {
namespace {

const cv::Size stripSize(160, 32);

// The shares of a strip's height that the characters fill. A second reading uses two, because a finder's height may be
// inexact.
constexpr std::array<float, 1> firstFills = {0.7f};
constexpr std::array<float, 2> secondFills = {0.62f, 0.78f};

// Where the second reading looks, in character heights below the row.
constexpr std::array<float, 1> shifts = {0};
constexpr std::array<float, 3> thoroughShifts = {0, -0.15f, 0.15f};

constexpr float firstMargin = 0.1f;  // of the row's width, on each side
constexpr float secondMargin = 0.04f;

// A column covers the pixels around it, and the outermost columns of a character are classified as none.
constexpr float outerColumns = 0.8f;

// Texts below the first two limits are not worth a second reading; those above the last do not need one.
constexpr std::size_t minCharacters = 3;
constexpr double minConfidence = 0.2;
constexpr double sufficientConfidence = 0.98;

cv::Mat Normalise(const cv::Mat& strip) {
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(strip, mean, deviation);
    cv::Mat values;
    strip.convertTo(values, CV_32F, 1 / (deviation[0] + 4), -mean[0] / (deviation[0] + 4));
    return values;
}

}  // namespace

TextReader::TextReader(const std::vector<unsigned char>& content) : network_(cv::dnn::readNetFromONNX(content)) {}

RowText TextReader::ReadOnce(const cv::Mat& grey, const TextRow& row, float margin, std::span<const float> fills) {
    std::vector<cv::Mat> strips;
    for (const float fill : fills) {
        strips.push_back(Normalise(CutRow(grey, row, fill, margin, stripSize)));
    }
    network_.setInput(cv::dnn::blobFromImages(strips));
    const cv::Mat output = network_.forward();
    const auto columns = static_cast<std::size_t>(output.size[3]);
    RowText text;
    text.scores = ColumnScores(output.ptr<float>(0), columns);
    for (int strip = 1; strip < static_cast<int>(strips.size()); ++strip) {
        text.scores.Average(ColumnScores(output.ptr<float>(strip), columns));
    }
    text.decoded = Decode(text.scores);
    text.row = row;
    if (!text.decoded.text.empty()) {
        const float outer = outerColumns / static_cast<float>(columns);
        const float width = CutWidth(row, margin);
        const float left = (text.decoded.left - outer - 0.5f) * width;
        const float right = (text.decoded.right + outer - 0.5f) * width;
        text.row.centre += cv::Point2f((left + right) / 2, row.slope * (left + right) / 2);
        text.row.width = right - left;
    }
    return text;
}

RowText TextReader::Read(const cv::Mat& grey, const TextRow& row, bool isThorough) {
    RowText first = ReadOnce(grey, row, firstMargin, firstFills);
    if (first.decoded.text.size() < minCharacters || first.decoded.confidence < minConfidence ||
        first.decoded.confidence > sufficientConfidence || first.row.width <= first.row.height) {
        return first;
    }
    RowText best = first;
    for (const float shift : isThorough ? std::span<const float>(thoroughShifts) : std::span<const float>(shifts)) {
        TextRow shifted = first.row;
        shifted.centre.y += shift * shifted.height;
        RowText again = ReadOnce(grey, shifted, secondMargin, secondFills);
        if (again.decoded.confidence > best.decoded.confidence &&
            again.decoded.text.size() + 1 >= best.decoded.text.size()) {
            best = std::move(again);
        }
    }
    return best;
}

}  // namespace plate_reading
