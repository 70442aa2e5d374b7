/// Compares the engine's reports on a picture with the plates that are in it.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace plate_evaluation {

/// In pixels.
struct Rectangle {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

/// A plate that is in a picture.
struct TruePlate {
    Rectangle place;
    std::wstring text;
};

struct Point {
    int x = 0;
    int y = 0;
};

/// A plate that the engine reported.
struct Report {
    std::wstring text;
    double confidence = 0;         ///< 0 to 100, of the whole text
    std::array<Point, 4> corners;  ///< top left, bottom left, top right, bottom right
    std::string country = {};      ///< ISO 3166-1 alpha-3; empty if unknown
};

/// Returns true when the report is of the plate at that place: the mean of its four corners is in the rectangle or on
/// its border, and its width, the mean of the extents of its upper and lower edge along x, is 0.45 to 1.35 times the
/// rectangle's.
bool IsLocalised(const Report& report, const Rectangle& place);

/// The result for one true plate.
struct PlateScore {
    std::optional<std::size_t> report;  ///< the index of the one that localises the plate
    bool isExact = false;
    bool isExactFolded = false;  ///< with look-alike characters made equal
    bool hasOneErrorAtMost = false;
    int characters = 0;       ///< of the true text
    int characterErrors = 0;  ///< at most `characters`; exactly that for a plate that is not localised
};

struct PictureScore {
    std::vector<PlateScore> plates;         ///< in the order of the true plates
    std::vector<std::size_t> otherReports;  ///< indices of those that match no plate
};

/// Matches each plate with the first unmatched report that localises it. REQUIRES: reports are ordered by falling
/// confidence, as the engine returns them.
PictureScore ScorePicture(const std::vector<TruePlate>& plates, const std::vector<Report>& reports);

/// Totals of many pictures.
struct Figures {
    int pictures = 0;
    int unreadablePictures = 0;  ///< included in `pictures`, with no plate localised
    int plates = 0;
    int localised = 0;
    int exact = 0;
    int exactFolded = 0;
    int oneErrorAtMost = 0;
    int characters = 0;
    int characterErrors = 0;
    int otherReports = 0;
    double milliseconds = 0;  ///< of all pictures that could be read

    /// Adds one picture; without a time, as one that could not be read.
    void Add(const PictureScore& score, std::optional<double> pictureMilliseconds);
    void Add(const Figures& others);

    /// Each is 0 when its divisor is 0.
    double CharacterErrorRate() const;
    double OtherReportsPerPicture() const;
    double MillisecondsPerPicture() const;
};

}  // namespace plate_evaluation
