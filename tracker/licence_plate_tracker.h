/// The tracker: which reading belongs to which vehicle, and when a vehicle is reported.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <vector>

#include "tracker/licence_plate_holder.h"
#include "tracker/licence_plate_tracker_interface.h"
#include "tracker/track.h"

/// One thread at a time, as its interface says.
class CLicencePlateTracker final : public ILicencePlateTracker {
  public:
    /// `sink` is not owned and may be null; then nothing is reported to anybody. Times in milliseconds;
    /// `readingsToReport` is the number of readings that completes a track.
    CLicencePlateTracker(ILicencePlateTrackerResultSink* sink, std::uint64_t lostTimeout, std::uint64_t maximumTrackAge,
                         std::uint64_t readingsToReport);

    void ProcessPlates(const std::vector<LicencePlatePtr>& readings, std::uint64_t frameTime) override;
    void SetLostTimeout(std::uint64_t milliseconds) override { lostTimeout_ = milliseconds; }
    void FinishAll() override;

  private:
    /// How close a reading is to a track; the closest decide.
    enum class Closeness : std::uint8_t { Certain, Nearby, Far, Behind };

    struct Candidate {
        boost::shared_ptr<LicencePlateHolder> holder;
        Closeness closeness;  // to the track in hand
    };

    void Hold(const std::vector<LicencePlatePtr>& readings);
    void Match();
    const Candidate* Choose(const CTrack& track);
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
    std::vector<Candidate> pending_;  // of the frame in hand, and empty between frames
};
