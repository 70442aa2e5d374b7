/// What the engine reported about a picture, held against what is in it.
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
};

/// True when the report is of the plate at that place: the mean of its four corners lies in the rectangle or on its
/// border, and its width, the mean of its upper and its lower edge's extent along x, is 0.45 to 1.35 times the
/// rectangle's.
bool IsLocalised(const Report& report, const Rectangle& place);

/// How one true plate came out.
struct PlateScore {
    std::optional<std::size_t> report;  ///< the one that localises the plate, as an index
    bool isExact = false;
    bool isExactFolded = false;  ///< with look-alikes made the same
    bool hasOneErrorAtMost = false;
    int characters = 0;       ///< of the true text
    int characterErrors = 0;  ///< at most all of them; all of them for a plate that is not localised
};

struct PictureScore {
    std::vector<PlateScore> plates;         ///< in the order of the true plates
    std::vector<std::size_t> otherReports;  ///< those taken for no plate, as indices
};

/// Takes for each plate the first report that localises it and that is not taken already. The reports come surest
/// first, as the engine gives them.
PictureScore ScorePicture(const std::vector<TruePlate>& plates, const std::vector<Report>& reports);

/// The figures of many pictures.
struct Figures {
    int pictures = 0;
    int unreadablePictures = 0;  ///< counted among the pictures, with none of their plates localised
    int plates = 0;
    int localised = 0;
    int exact = 0;
    int exactFolded = 0;
    int oneErrorAtMost = 0;
    int characters = 0;
    int characterErrors = 0;
    int otherReports = 0;
    double milliseconds = 0;  ///< of all the pictures that could be read

    /// Counts one picture in; without a time it could not be read.
    void Add(const PictureScore& score, std::optional<double> pictureMilliseconds);
    void Add(const Figures& others);

    /// Each is 0 where there is nothing to divide by.
    double CharacterErrorRate() const;
    double OtherReportsPerPicture() const;
    double MillisecondsPerPicture() const;
};

}  // namespace plate_evaluation
