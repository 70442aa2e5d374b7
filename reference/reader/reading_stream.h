/// Combines the readings of a plate in successive frames of one camera.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "reference/reader/frame_reader.h"

namespace plate_reading {

/// A host reports one reading of a vehicle, not the best one; so a plate in a stream is reported only when several
/// frames agree on its text, and then always with that text. Frames of different scenes are independent. Texts that are
/// short, or of only letters or only digits, are reported only if they move.
///
/// One camera, one thread at a time.
class ReadingStream {
  public:
    /// The number of frames that must agree; with 1, readings are not changed.
    explicit ReadingStream(int confirmations) : needed_(confirmations) {}

    /// Returns the readings of the next frame that are to be reported, in the same order. `region` is the area that was
    /// searched; without it, the whole frame.
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
        double firstX = 0;
        double firstY = 0;
        bool hasMoved = false;
        int lastSeen = 0;
        std::map<std::string, Votes> texts;
        std::string reported;
    };

    /// Whether the frame belongs to the stream of the previous one. Forgets the plates when the scene changes.
    bool ContinuesScene(const Picture& picture);
    Plate& PlateOf(const Reading& reading);
    void ForgetText(Plate& plate, const std::string& kept) const;
    bool Confirm(Plate& plate, Reading& reading) const;

    int needed_;
    int pictures_ = 0;
    int sameScene_ = 0;  ///< number of consecutive frames
    int width_ = 0;
    int height_ = 0;
    std::vector<float> thumbnail_;
    std::vector<Plate> plates_;
};

}  // namespace plate_reading
