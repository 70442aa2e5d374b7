#include "reference/reader/plate_frame_reader.h"

#include <algorithm>
#include <cmath>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "reference/reader/networks.h"
#include "reference/reader/plate_detector.h"
#include "reference/reader/plate_formats.h"
#include "reference/reader/row_finder.h"
#include "reference/reader/text_reader.h"

namespace plate_reading {
namespace {

constexpr std::size_t maxReadings = 5;
constexpr std::size_t minCharacters = 4;
constexpr std::size_t maxCharacters = 12;

// Only the best rows of each finder are read, because reading takes most of the time. Of the rows with a score below
// sureScore only a few are read, and none if a plate has been read before that is surely one.
constexpr std::size_t maxDetectedRows = 8;
constexpr std::ptrdiff_t maxDoubtfulRows = 3;
constexpr float sureScore = 0.65f;
constexpr double sureConfidence = 0.8;
constexpr std::size_t maxFoundRows = 3;

constexpr double minConfidence = 0.3;
// Patterns such as railings are read as long texts, plates of that length are rare.
constexpr std::size_t usualLength = 9;
constexpr double minLongConfidence = 0.6;

// Of a text in a single frame, with the format of a country and without.
constexpr double minAloneConfidence = 0.7;
constexpr double minAloneFormatlessConfidence = 0.95;

// Short texts occur by chance; a text of this length has full weight.
constexpr double fullLength = 5.5;

// Two readings that overlap by this share of the smaller one are of the same plate.
constexpr float samePlace = 0.3f;

// The width of a row over the height of its characters, from four wide characters to twelve narrow ones.
constexpr float minAspect = 1.6f;
constexpr float maxAspect = 9.f;

// The rows of a plate with two rows, as on motorcycles: lengths in characters, the other limits as shares of the rows'
// mean height.
constexpr std::size_t minRowCharacters = 2;
constexpr std::size_t maxRowCharacters = 6;
constexpr std::size_t maxPrefixLetters = 3;
constexpr std::size_t maxJoinedCharacters = 10;
constexpr double minRowConfidence = 0.5;
constexpr float maxRowHeightDifference = 0.4f;
constexpr float maxRowWidth = 5.5f;
constexpr float minRowDistance = 0.9f;
constexpr float maxRowDistance = 2.f;
constexpr float minRowOverlap = 0.6f;  // of the narrower row
constexpr float maxSlopeDifference = 0.15f;

// The character heights that are searched for without a range of widths, in pixels.
constexpr HeightRange anyHeight = {6.f, 1e6f};

double Weight(const RowText& text) {
    return text.decoded.confidence * std::min(1.0, static_cast<double>(text.decoded.text.size()) / fullLength);
}

bool IsRow(const RowText& text) {
    const std::size_t length = text.decoded.text.size();
    return length >= minRowCharacters && length <= maxCharacters &&
           text.decoded.confidence >= (length > usualLength ? minLongConfidence : minConfidence);
}

bool IsPlate(const RowText& text) {
    return text.decoded.text.size() >= minCharacters && IsRow(text);
}

bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

/// Whether `lower` is the second row of a plate whose first one is `upper`. As in the formats with two rows of most
/// countries the first begins with a letter, and has digits or at most three letters; the second ends with two digits.
/// So neither the lines of a sign nor a plate and a dealer's name below it are joined.
bool AreRowsOfOnePlate(const RowText& upper, const RowText& lower) {
    const std::string& first = upper.decoded.text;
    const std::string& second = lower.decoded.text;
    const bool isPrefix = first.size() <= maxPrefixLetters || std::any_of(first.begin(), first.end(), IsDigit);
    const float height = (upper.row.height + lower.row.height) / 2;
    const float down = lower.row.centre.y - upper.row.centre.y;
    const float left = std::max(upper.row.Box().x, lower.row.Box().x);
    const float right = std::min(upper.row.Box().br().x, lower.row.Box().br().x);
    return isPrefix && first.size() <= maxRowCharacters && second.size() > minRowCharacters &&
           second.size() <= maxRowCharacters && first.size() + second.size() <= maxJoinedCharacters &&
           !IsDigit(first.front()) && IsDigit(second.back()) && IsDigit(second[second.size() - 2]) &&
           std::min(upper.decoded.confidence, lower.decoded.confidence) >= minRowConfidence &&
           std::abs(upper.row.height - lower.row.height) <= maxRowHeightDifference * height &&
           std::max(upper.row.width, lower.row.width) <= maxRowWidth * height && down >= minRowDistance * height &&
           down <= maxRowDistance * height &&
           right - left >= minRowOverlap * std::min(upper.row.width, lower.row.width) &&
           std::abs(upper.row.slope - lower.row.slope) <= maxSlopeDifference;
}

/// The whole plate: upper row first.
RowText Join(const RowText& upper, const RowText& lower) {
    RowText joined = upper;
    joined.decoded.text += lower.decoded.text;
    joined.decoded.characters.insert(joined.decoded.characters.end(), lower.decoded.characters.begin(),
                                     lower.decoded.characters.end());
    joined.decoded.confidence = std::min(upper.decoded.confidence, lower.decoded.confidence);
    const float left = std::min(upper.row.centre.x - upper.row.width / 2, lower.row.centre.x - lower.row.width / 2);
    const float right = std::max(upper.row.centre.x + upper.row.width / 2, lower.row.centre.x + lower.row.width / 2);
    joined.row.centre = {(left + right) / 2, (upper.row.centre.y + lower.row.centre.y) / 2};
    joined.row.width = right - left;
    joined.row.height = lower.row.centre.y - upper.row.centre.y + (upper.row.height + lower.row.height) / 2;
    return joined;
}

/// Replaces the two rows of a plate by one text.
void JoinRows(std::vector<RowText>& texts) {
    for (std::size_t upper = 0; upper < texts.size(); ++upper) {
        for (std::size_t lower = 0; lower < texts.size(); ++lower) {
            if (upper != lower && AreRowsOfOnePlate(texts[upper], texts[lower])) {
                texts[upper] = Join(texts[upper], texts[lower]);
                const cv::Rect2f box = texts[upper].row.Box();
                const std::string whole = texts[upper].decoded.text;
                std::erase_if(texts, [&](const RowText& other) {
                    return other.decoded.text != whole && Overlap(box, other.row.Box()) > samePlace;
                });
                upper = static_cast<std::size_t>(-1);  // the indices have changed: begins again
                break;
            }
        }
    }
}

class PlateFrameReader final : public FrameReader {
  public:
    explicit PlateFrameReader(const ReadingOptions& options)
        : options_(options),
          formats_(FormatsTable(), options.countries),
          detector_(DetectorNetwork()),
          reader_(ReaderNetwork()) {}

    std::vector<Reading> Read(const Picture& picture, const Search& search) override {
        const cv::Mat colours(picture.height, picture.width, CV_8UC3, const_cast<std::uint8_t*>(picture.pixels),
                              picture.stride);
        cv::Rect whole(0, 0, picture.width, picture.height);
        if (search.region) {
            whole = PartOf(whole, *search.region);
        }
        if (IsTooSmall(whole) || (search.widths && search.widths->maximum < search.widths->minimum)) {
            return {};
        }
        const cv::Rect searched = search.part ? PartOf(whole, *search.part) : whole;
        if (IsTooSmall(searched)) {
            return {};
        }
        cv::Mat grey;
        cv::cvtColor(colours(searched), grey, cv::COLOR_BGR2GRAY);

        std::vector<Reading> readings;
        for (const RowText& text : ReadRows(grey, whole.width, search)) {
            readings.push_back(MakeReading(text, searched.tl()));
        }
        return readings;
    }

  private:
    static bool IsTooSmall(const cv::Rect& area) { return area.width < 8 || area.height < 8; }

    static cv::Rect PartOf(const cv::Rect& area, const Region& region) {
        const int left = std::clamp(region.left, area.x, area.br().x);
        const int top = std::clamp(region.top, area.y, area.br().y);
        return {left, top, std::clamp(region.right, area.x, area.br().x) - left,
                std::clamp(region.bottom, area.y, area.br().y) - top};
    }

    /// Best first, one for each place. `wholeWidth` is that of the region that `grey` is a part of.
    std::vector<RowText> ReadRows(const cv::Mat& grey, int wholeWidth, const Search& search) {
        const std::optional<WidthRange>& widths = search.widths;
        HeightRange heights = anyHeight;
        if (widths) {
            heights.minimum = std::max(heights.minimum, static_cast<float>(widths->minimum) / maxAspect);
            heights.maximum = std::min(heights.maximum, static_cast<float>(widths->maximum) / minAspect);
        }
        std::vector<RowText> texts;
        std::vector<TextRow> detected = FilterByWidth(detector_.Find(grey, heights, wholeWidth), widths);
        detected.resize(std::min(detected.size(), maxDetectedRows));
        const auto doubtful =
            std::find_if(detected.begin(), detected.end(), [](const TextRow& row) { return row.score < sureScore; });
        ReadAll(grey, {detected.begin(), doubtful}, search, texts);
        if (std::none_of(texts.begin(), texts.end(), [&](const RowText& text) { return IsSure(text); })) {
            const auto count = std::min<std::ptrdiff_t>(detected.end() - doubtful, maxDoubtfulRows);
            ReadAll(grey, {doubtful, doubtful + count}, search, texts);
        }
        if (std::none_of(texts.begin(), texts.end(), IsPlate)) {
            ReadAll(grey, FilterByWidth(FindRows(grey, heights, maxFoundRows), widths), search, texts);
        }
        texts = BestOfEachPlace(std::move(texts));
        JoinRows(texts);
        for (RowText& text : texts) {
            ApplyFormats(text.decoded);
        }
        std::erase_if(texts, [](const RowText& text) { return !IsPlate(text); });
        if (search.isSingle) {
            std::erase_if(texts, [&](const RowText& text) { return IsUnsureAlone(text); });
        }
        texts = BestOfEachPlace(std::move(texts));
        texts.resize(std::min(texts.size(), maxReadings));
        return texts;
    }

    /// The best first.
    static std::vector<RowText> BestOfEachPlace(std::vector<RowText> texts) {
        std::stable_sort(texts.begin(), texts.end(),
                         [](const RowText& a, const RowText& b) { return Weight(a) > Weight(b); });
        std::vector<RowText> kept;
        for (RowText& text : texts) {
            const cv::Rect2f box = text.row.Box();
            const bool isDuplicate = std::any_of(kept.begin(), kept.end(), [&](const RowText& other) {
                return Overlap(box, other.row.Box()) > samePlace;
            });
            if (!isDuplicate) {
                kept.push_back(std::move(text));
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

    void ReadAll(const cv::Mat& grey, const std::vector<TextRow>& rows, const Search& search,
                 std::vector<RowText>& texts) {
        const std::optional<WidthRange>& widths = search.widths;
        for (const TextRow& row : rows) {
            RowText text = reader_.Read(grey, row, search.isSingle);
            if (!options_.templates.empty() && text.decoded.text.size() + 1 >= minCharacters) {
                text.decoded = DecodeByTemplates(text.scores, options_.templates, text.decoded);
            }
            const bool fits = !widths || (text.row.width >= static_cast<float>(widths->minimum) &&
                                          text.row.width <= static_cast<float>(widths->maximum));
            if (fits && IsRow(text)) {
                texts.push_back(std::move(text));
            }
        }
    }

    bool IsSure(const RowText& text) const {
        DecodedText decoded = text.decoded;
        ApplyFormats(decoded);
        return IsPlate(text) && decoded.hasFormat && decoded.confidence >= sureConfidence;
    }

    /// Whether a text that no other frame confirms is more often that of something else.
    bool IsUnsureAlone(const RowText& text) const {
        const bool isExpected = text.decoded.hasFormat || !options_.templates.empty();
        return text.decoded.confidence < (isExpected ? minAloneConfidence : minAloneFormatlessConfidence);
    }

    void ApplyFormats(DecodedText& decoded) const {
        DecodedText fitted = decoded;
        formats_.Fit(fitted);
        // The templates are stricter.
        if (options_.templates.empty() || fitted.text == decoded.text) {
            decoded = std::move(fitted);
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
                {corner(-1, -1), corner(-1, 1), corner(1, -1), corner(1, 1)},
                text.decoded.country,
                text.decoded.hasFormat};
    }

    const ReadingOptions options_;
    const PlateFormats formats_;
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
