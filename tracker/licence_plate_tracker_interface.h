/// The tracker as its owner sees it, and the owner as the tracker sees it.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <vector>

#include "tracker/licence_plate.h"

/// Groups the readings of successive frames into tracks and reports each track once.
/// One thread at a time; the sink is called on that thread, from inside the calls.
class ILicencePlateTracker {
  public:
    /// Takes one frame's readings, possibly none, and the frame's time in milliseconds. On allocation failure it throws
    /// std::bad_alloc: readings that no track has taken are handed back, and the next frame goes on with the tracks.
    virtual void ProcessPlates(const std::vector<LicencePlatePtr>& readings, std::uint64_t frameTime) = 0;

    /// A track without a reading for longer than this many milliseconds is lost.
    virtual void SetLostTimeout(std::uint64_t milliseconds) = 0;

    /// Reports every remaining track and drops all of them.
    virtual void FinishAll() = 0;

  protected:
    /// Deletion goes through the shared pointer of the concrete type.
    ~ILicencePlateTracker() = default;
};

/// Why a track is reported.
namespace TrackReason {
inline constexpr std::int32_t Slow = 0;       ///< it has become slow; it stays
inline constexpr std::int32_t OutOfView = 1;  ///< it is predicted outside the enlarged frame; it is removed
inline constexpr std::int32_t Lost = 2;       ///< no reading for too long; it is removed
inline constexpr std::int32_t Complete =
    3;  ///< enough readings, or old enough; it stays. Also every track at FinishAll
}  // namespace TrackReason

/// Takes the tracker's reports. Must outlive the tracker and every reading that it holds. Both operations should throw
/// nothing; what they throw is dropped, and the report or the release counts as made.
class ILicencePlateTrackerResultSink {
  public:
    /// `bestReading` is the track's best one and `readings` are those of the track that have its text, in the order of
    /// their arrival; the vector is the tracker's and valid during the call alone.
    virtual void OnResult(ILicencePlateTracker* tracker, boost::shared_ptr<LicencePlate> bestReading,
                          const std::vector<LicencePlatePtr>& readings, std::int32_t reason) = 0;

    /// A reading that was never reported leaves the tracker; called once for each of them, with a null tracker.
    virtual void OnMayReleaseLicencePlate(ILicencePlateTracker* tracker, boost::shared_ptr<LicencePlate> reading) = 0;

  protected:
    ~ILicencePlateTrackerResultSink() = default;
};
