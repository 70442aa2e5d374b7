/// Combines the readings of a plate in successive frames of one camera.
#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "reference/reader/frame_reader.h"

namespace plate_reading {

/// A host reports one reading of a vehicle, not the best one; so a plate in a stream is reported only when several
/// frames agree on its text, and then always with that text. Frames of different scenes are independent. Texts that are
/// short, or of only letters or only digits, are reported only if they move; so are all texts while the camera moves,
/// since then only what is written over the picture stands still.
///
/// One camera, one thread at a time.
class ReadingStream {
  public:
    using Clock = std::chrono::steady_clock;

    /// The number of frames that must agree; with 1, readings are not changed. `now` returns the time.
    explicit ReadingStream(int confirmations, Clock::time_point (*now)() = Clock::now)
        : needed_(confirmations), now_(now) {}

    /// The part of the next frame that must be searched: where it differs from the frames in which it was searched, and
    /// all of it at least once a second and every 25 frames. May be empty: nothing has changed.
    Region ChangedPart(const Picture& picture, const std::optional<Region>& region);

    /// Whether other frames show the plates of the next one too.
    bool IsStream() const { return needed_ > 1 && sameScene_ > 0; }

    /// The next frame is searched as a whole, because other plates are wanted.
    void ForgetPicture() { brightness_.clear(); }

    /// Returns the readings of the next frame that are to be reported. `region` is the area that may be searched;
    /// without it, the whole frame. If only a part of it was searched for `readings`, the plates outside that part are
    /// those of the previous frame.
    std::vector<Reading> Follow(const Picture& picture, const std::optional<Region>& region,
                                std::vector<Reading> readings, const std::optional<Region>& part = std::nullopt);

  private:
    struct Votes {
        int count = 0;
        double weight = 0;
        double confidence = 0;  ///< the sum
        bool hasFormat = false;
        std::string country;
    };

    struct Plate {
        double x = 0;
        double y = 0;
        double width = 0;
        double firstX = 0;
        double firstY = 0;
        bool hasMoved = false;
        bool isOverlay = false;   // it stood still in all frames, and the camera moved
        bool isRepeated = false;  // it moves, but this frame shows it where the previous one did
        int lastSeen = 0;         // the last frame that shows it
        int lastRead = 0;         // the last frame in which it was read, without repeated pictures
        int seen = 0;             // frames in which it was read
        double speedX = 0;        // pixels a frame
        double speedY = 0;
        Reading last;
        std::map<std::string, Votes> texts;
        std::string reported;
    };

    /// Whether the frame belongs to the stream of the previous one. Forgets the plates when the scene changes.
    bool ContinuesScene(const Picture& picture, const std::vector<Reading>& readings);
    Region WithPlates(Region part, const Region& whole) const;
    Plate& PlateOf(const Reading& reading, bool isUnchanged);
    bool MustHaveMoved(const Plate& plate) const;
    Plate* UnchangedPlateOf(const Reading& reading);
    void ForgetText(Plate& plate, const std::string& kept) const;
    void AddHidden(const Region& whole, std::vector<Reading>& readings) const;
    int NeededFor(const std::pair<const std::string, Votes>& text) const;
    bool Confirm(Plate& plate, Reading& reading) const;
    bool IsCameraMoving(const std::vector<float>& brightness) const;

    int needed_;
    Clock::time_point (*now_)();
    int pictures_ = 0;
    int sameScene_ = 0;  ///< number of consecutive frames
    int width_ = 0;
    int height_ = 0;
    std::vector<float> thumbnail_;
    std::vector<Plate> plates_;

    std::vector<float> brightness_;  // of each square of `searched_` when it was last searched
    Region searched_;
    std::vector<Region> changed_;  // squares that differ from when they were last searched
    bool isCameraMoving_ = false;
    int sinceWholeSearch_ = 0;  // frames
    Clock::time_point wholeSearch_;
    std::vector<Reading> lastReadings_;
    std::deque<std::vector<std::string>> lastTexts_;  // of the last frames, each with its clear texts
};

}  // namespace plate_reading
