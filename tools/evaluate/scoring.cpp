#include "tools/evaluate/scoring.h"

#include <algorithm>
#include <cstdint>

#include "tools/evaluate/text.h"

namespace plate_evaluation {
namespace {

PlateScore ScorePlate(const TruePlate& plate, const Report* report) {
    PlateScore score;
    score.characters = static_cast<int>(plate.text.size());
    score.characterErrors = score.characters;
    if (report != nullptr) {
        const int distance = EditDistance(report->text, plate.text);
        score.isExact = distance == 0;
        score.isExactFolded = FoldLookAlikes(report->text) == FoldLookAlikes(plate.text);
        score.hasOneErrorAtMost = distance <= 1;
        score.characterErrors = std::min(distance, score.characters);
    }
    return score;
}

double Ratio(double dividend, int divisor) {
    return divisor == 0 ? 0 : dividend / divisor;
}

}  // namespace

// Computed in integers, so that both bounds are included exactly.
bool IsLocalised(const Report& report, const Rectangle& place) {
    std::int64_t fourX = 0;
    std::int64_t fourY = 0;
    for (const Point& corner : report.corners) {
        fourX += corner.x;
        fourY += corner.y;
    }
    const auto isBetween = [](std::int64_t value, std::int64_t min, std::int64_t max) {
        return min <= value && value <= max;
    };
    const std::int64_t left = place.x;
    const std::int64_t top = place.y;
    const auto& [topLeft, bottomLeft, topRight, bottomRight] = report.corners;
    const std::int64_t twiceWidth = std::int64_t{topRight.x} - topLeft.x + std::int64_t{bottomRight.x} - bottomLeft.x;
    return isBetween(fourX, 4 * left, 4 * (left + place.width)) &&
           isBetween(fourY, 4 * top, 4 * (top + place.height)) &&
           isBetween(twiceWidth * 50, std::int64_t{place.width} * 45, std::int64_t{place.width} * 135);
}

PictureScore ScorePicture(const std::vector<TruePlate>& plates, const std::vector<Report>& reports) {
    PictureScore score;
    std::vector<bool> isTaken(reports.size(), false);
    for (const TruePlate& plate : plates) {
        std::size_t index = 0;
        while (index < reports.size() && (isTaken[index] || !IsLocalised(reports[index], plate.place))) {
            ++index;
        }
        const bool isFound = index < reports.size();
        score.plates.push_back(ScorePlate(plate, isFound ? &reports[index] : nullptr));
        if (isFound) {
            isTaken[index] = true;
            score.plates.back().report = index;
        }
    }
    for (std::size_t index = 0; index < reports.size(); ++index) {
        if (!isTaken[index]) {
            score.otherReports.push_back(index);
        }
    }
    return score;
}

void Figures::Add(const PictureScore& score, std::optional<double> pictureMilliseconds) {
    ++pictures;
    unreadablePictures += pictureMilliseconds ? 0 : 1;
    milliseconds += pictureMilliseconds.value_or(0);
    otherReports += static_cast<int>(score.otherReports.size());
    for (const PlateScore& plate : score.plates) {
        ++plates;
        localised += plate.report ? 1 : 0;
        exact += plate.isExact ? 1 : 0;
        exactFolded += plate.isExactFolded ? 1 : 0;
        oneErrorAtMost += plate.hasOneErrorAtMost ? 1 : 0;
        characters += plate.characters;
        characterErrors += plate.characterErrors;
    }
}

void Figures::Add(const Figures& others) {
    pictures += others.pictures;
    unreadablePictures += others.unreadablePictures;
    plates += others.plates;
    localised += others.localised;
    exact += others.exact;
    exactFolded += others.exactFolded;
    oneErrorAtMost += others.oneErrorAtMost;
    characters += others.characters;
    characterErrors += others.characterErrors;
    otherReports += others.otherReports;
    milliseconds += others.milliseconds;
}

double Figures::CharacterErrorRate() const {
    return Ratio(characterErrors, characters);
}

double Figures::OtherReportsPerPicture() const {
    return Ratio(otherReports, pictures);
}

double Figures::MillisecondsPerPicture() const {
    return Ratio(milliseconds, pictures - unreadablePictures);
}

}  // namespace plate_evaluation
