#include "reference/reader/plate_frame_reader.h"

#include <algorithm>
#include <cmath>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "reference/reader/networks.h"
#include "reference/reader/plate_detector.h"
#include "reference/reader/row_finder.h"
#include "reference/reader/text_reader.h"

namespace plate_reading {
namespace {

constexpr std::size_t maxReadings = 5;
constexpr std::size_t minCharacters = 4;
constexpr std::size_t maxCharacters = 9;

// Only the best rows of each finder are read, because reading takes most of the time. Of the rows with a score below
// sureScore only a few are read, and none if a plate has been read before.
constexpr std::size_t maxDetectedRows = 8;
constexpr std::ptrdiff_t maxDoubtfulRows = 3;
constexpr float sureScore = 0.6f;
constexpr std::size_t maxFoundRows = 3;

constexpr double minConfidence = 0.3;

// Short texts occur by chance; a text of this length has full weight.
constexpr double fullLength = 5.5;

// Two readings that overlap by this share of the smaller one are of the same plate.
constexpr float samePlace = 0.4f;

// The width of a row over the height of its characters, from four wide characters to nine narrow ones.
constexpr float minAspect = 1.6f;
constexpr float maxAspect = 7.f;

// The character heights that are searched for without a range of widths, in pixels.
constexpr HeightRange anyHeight = {6.f, 1e6f};

double Weight(const RowText& text) {
    return text.decoded.confidence * std::min(1.0, static_cast<double>(text.decoded.text.size()) / fullLength);
}

bool IsPlate(const RowText& text) {
    const std::size_t length = text.decoded.text.size();
    return length >= minCharacters && length <= maxCharacters && text.decoded.confidence >= minConfidence;
}

class PlateFrameReader final : public FrameReader {
  public:
    explicit PlateFrameReader(const ReadingOptions& options)
        : options_(options), detector_(DetectorNetwork()), reader_(ReaderNetwork()) {}

    std::vector<Reading> Read(const Picture& picture, const std::optional<Region>& region,
                              const std::optional<WidthRange>& widths) override {
        const cv::Mat colours(picture.height, picture.width, CV_8UC3, const_cast<std::uint8_t*>(picture.pixels),
                              picture.stride);
        cv::Rect searched(0, 0, picture.width, picture.height);
        if (region) {
            searched.x = std::clamp(region->left, 0, picture.width);
            searched.y = std::clamp(region->top, 0, picture.height);
            searched.width = std::clamp(region->right, 0, picture.width) - searched.x;
            searched.height = std::clamp(region->bottom, 0, picture.height) - searched.y;
        }
        if (searched.width < 8 || searched.height < 8 || (widths && widths->maximum < widths->minimum)) {
            return {};
        }
        cv::Mat grey;
        cv::cvtColor(colours(searched), grey, cv::COLOR_BGR2GRAY);

        std::vector<Reading> readings;
        for (const RowText& text : ReadRows(grey, widths)) {
            readings.push_back(MakeReading(text, searched.tl()));
        }
        return readings;
    }

  private:
    /// Best first, one for each place.
    std::vector<RowText> ReadRows(const cv::Mat& grey, const std::optional<WidthRange>& widths) {
        HeightRange heights = anyHeight;
        if (widths) {
            heights.minimum = std::max(heights.minimum, static_cast<float>(widths->minimum) / maxAspect);
            heights.maximum = std::min(heights.maximum, static_cast<float>(widths->maximum) / minAspect);
        }
        std::vector<RowText> texts;
        std::vector<TextRow> detected = FilterByWidth(detector_.Find(grey, heights), widths);
        detected.resize(std::min(detected.size(), maxDetectedRows));
        const auto doubtful =
            std::find_if(detected.begin(), detected.end(), [](const TextRow& row) { return row.score < sureScore; });
        ReadAll(grey, {detected.begin(), doubtful}, widths, texts);
        if (texts.empty()) {
            const auto count = std::min<std::ptrdiff_t>(detected.end() - doubtful, maxDoubtfulRows);
            ReadAll(grey, {doubtful, doubtful + count}, widths, texts);
        }
        if (texts.empty()) {
            ReadAll(grey, FilterByWidth(FindRows(grey, heights, maxFoundRows), widths), widths, texts);
        }
        std::sort(texts.begin(), texts.end(), [](const RowText& a, const RowText& b) { return Weight(a) > Weight(b); });
        std::vector<RowText> kept;
        for (const RowText& text : texts) {
            const cv::Rect2f box = text.row.Box();
            const bool isDuplicate = std::any_of(kept.begin(), kept.end(), [&](const RowText& other) {
                return Overlap(box, other.row.Box()) > samePlace;
            });
            if (!isDuplicate) {
                kept.push_back(text);
            }
            if (kept.size() == maxReadings) {
                break;
            }
        }
        return kept;
    }

    /// Removes rows whose width cannot be in the range. The finders' ends are less exact than the reader's.
    static std::vector<TextRow> FilterByWidth(std::vector<TextRow> rows, const std::optional<WidthRange>& widths) {
        if (widths) {
            std::erase_if(rows, [&](const TextRow& row) {
                return row.width < 0.7f * static_cast<float>(widths->minimum) ||
                       row.width > 1.4f * static_cast<float>(widths->maximum);
            });
        }
        return rows;
    }

    void ReadAll(const cv::Mat& grey, const std::vector<TextRow>& rows, const std::optional<WidthRange>& widths,
                 std::vector<RowText>& texts) {
        for (const TextRow& row : rows) {
            RowText text = reader_.Read(grey, row);
            if (!options_.templates.empty() && text.decoded.text.size() + 1 >= minCharacters) {
                text.decoded = DecodeByTemplates(text.scores, options_.templates, text.decoded);
            }
            const bool fits = !widths || (text.row.width >= static_cast<float>(widths->minimum) &&
                                          text.row.width <= static_cast<float>(widths->maximum));
            if (fits && IsPlate(text)) {
                texts.push_back(std::move(text));
            }
        }
    }

    static Reading MakeReading(const RowText& text, const cv::Point& origin) {
        const TextRow& row = text.row;
        const float rise = row.slope * row.width / 2;
        const auto corner = [&](float across, float down) {
            return Point{
                origin.x + static_cast<int>(std::lround(row.centre.x + across * row.width / 2)),
                origin.y + static_cast<int>(std::lround(row.centre.y + across * rise + down * row.height / 2))};
        };
        return {text.decoded.text,
                100 * text.decoded.confidence,
                {corner(-1, -1), corner(-1, 1), corner(1, -1), corner(1, 1)}};
    }

    const ReadingOptions options_;
    PlateDetector detector_;
    TextReader reader_;
};

}  // namespace

std::unique_ptr<FrameReader> MakePlateFrameReader(const ReadingOptions& options) {
    // Frames are read in parallel, each on one thread.
    cv::setNumThreads(1);
    return std::make_unique<PlateFrameReader>(options);
}

}  // namespace plate_reading
