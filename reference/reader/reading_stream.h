/// What the readings of a plate in successive pictures of one camera agree on.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "reference/reader/frame_reader.h"

namespace plate_reading {

/// A host that reports a vehicle once takes one of its readings, not the best of them; so a plate of a moving picture
/// is reported only when several pictures agree on its text, and then always by that text. Pictures that show different
/// scenes are each for themselves.
///
/// One camera, one thread at a time.
class ReadingStream {
  public:
    /// So many pictures must agree; 1 passes every reading as it is.
    explicit ReadingStream(int confirmations) : needed_(confirmations) {}

    /// The readings of the next picture that are to be reported, in their order. Without a region, all of it was
    /// searched.
    std::vector<Reading> Follow(const Picture& picture, const std::optional<Region>& region,
                                std::vector<Reading> readings);

  private:
    struct Votes {
        int count = 0;
        double weight = 0;
        double confidence = 0;  ///< the sum
    };

    struct Plate {
        double x = 0;
        double y = 0;
        double width = 0;
        int lastSeen = 0;
        std::map<std::string, Votes> texts;
        std::string reported;
    };

    /// Whether the picture shows the scene of the one before.
    bool ContinuesScene(const Picture& picture);
    Plate& PlateOf(const Reading& reading);
    void ForgetText(Plate& plate, const std::string& kept) const;
    bool Confirm(Plate& plate, Reading& reading) const;

    int needed_;
    int pictures_ = 0;
    int sameScene_ = 0;  ///< pictures in a row
    int width_ = 0;
    int height_ = 0;
    std::vector<float> thumbnail_;
    std::vector<Plate> plates_;
};

}  // namespace plate_reading
