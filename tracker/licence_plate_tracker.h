/// The tracker: assigns readings to tracks, one per vehicle, and reports each track once.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <vector>

#include "tracker/licence_plate_holder.h"
#include "tracker/licence_plate_tracker_interface.h"
#include "tracker/track.h"

/// The rules, frame by frame:
/// 1. Match. Tracks choose in order of age, each at most one reading. A reading is Certain when the track has its text
///    or, with two readings or more, predicts the position within one plate width and two plate heights; else Nearby
///    within 0.15 x (width + height) of the frame; else Far. A reading behind the track, seen in its direction of
///    travel, is Certain by text only. Of the closest class that has readings, the one with the smallest normalised
///    text distance is chosen if that distance is at most 0.65 (Nearby) or 0.35 (Far); for Certain there is no limit.
/// 2. Each reading that no track chose starts a track.
/// 3. Report and remove tracks, for the reasons in TrackReason.
/// One thread at a time; the sink is called on that thread.
class CLicencePlateTracker final : public ILicencePlateTracker {
  public:
    /// `sink` is not owned and may be null; then there are no reports. Times are in milliseconds. A track is complete
    /// with `readingsToReport` readings, or `maximumTrackAge` after its first reading.
    CLicencePlateTracker(ILicencePlateTrackerResultSink* sink, std::uint64_t lostTimeout, std::uint64_t maximumTrackAge,
                         std::uint64_t readingsToReport);

    void ProcessPlates(const std::vector<LicencePlatePtr>& readings, std::uint64_t frameTime) override;
    void SetLostTimeout(std::uint64_t milliseconds) override { lostTimeout_ = milliseconds; }
    void FinishAll() override;

    /// The tracks that were not removed, oldest first. A track that got a reading of the last frame is among them if
    /// the reading has that frame's time.
    const std::vector<boost::shared_ptr<CTrack>>& Tracks() const { return tracks_; }

  private:
    /// How close a reading is to a track. A track chooses among the readings of the closest class.
    enum class Closeness : std::uint8_t { Certain, Nearby, Far, Behind };

    struct Candidate {
        boost::shared_ptr<LicencePlateHolder> holder;
        Closeness closeness;  // to the track that chooses
    };

    void CreateHolders(const std::vector<LicencePlatePtr>& readings);
    void Match();
    const Candidate* ChooseCandidate(const CTrack& track);
    void StartTracks();
    void FinishTracks(std::uint64_t now);
    void Report(CTrack& track, const boost::shared_ptr<LicencePlateHolder>& best, std::int32_t reason);

    static Closeness ClosenessOf(const CTrack& track, const LicencePlateHolder& candidate);
    static Closeness ClosenessByPosition(const CTrack& track, const LicencePlateHolder& candidate);

    std::uint64_t lostTimeout_;
    std::uint64_t maximumTrackAge_;
    std::uint64_t readingsToReport_;
    ILicencePlateTrackerResultSink* sink_;
    std::vector<boost::shared_ptr<CTrack>> tracks_;  // oldest first
    std::int32_t nextTrackId_ = 0;
    std::vector<Candidate> pending_;  // of the current frame; empty between frames
};
