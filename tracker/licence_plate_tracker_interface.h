/// The interface of the tracker, and that of the sink of its reports.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <vector>

#include "tracker/licence_plate.h"

/// Groups the readings of successive frames into tracks and reports each track once.
/// One thread at a time; the sink is called on that thread, from inside the calls.
class ILicencePlateTracker {
  public:
    /// Processes the readings of one frame, possibly none; null entries are ignored. `frameTime` is the frame's time
    /// stamp in milliseconds. On allocation failure it throws std::bad_alloc; readings that are in no track are
    /// released to the sink, and the tracks remain.
    virtual void ProcessPlates(const std::vector<LicencePlatePtr>& readings, std::uint64_t frameTime) = 0;

    /// A track without a reading for longer than this many milliseconds is lost.
    virtual void SetLostTimeout(std::uint64_t milliseconds) = 0;

    /// Reports every remaining track that was not reported yet, with TrackReason::Complete, and removes all tracks.
    virtual void FinishAll() = 0;

  protected:
    /// Deleted through the shared pointer of the concrete type.
    ~ILicencePlateTracker() = default;
};

/// Why a track is reported.
namespace TrackReason {
inline constexpr std::int32_t Slow = 0;       ///< its smoothed speed is below 24 pixels per second; it stays
inline constexpr std::int32_t OutOfView = 1;  ///< predicted outside the frame and its margin of 10 %; it is removed
inline constexpr std::int32_t Lost = 2;       ///< no reading for longer than the lost timeout; it is removed
inline constexpr std::int32_t Complete = 3;   ///< enough readings or old enough; it stays. Also used by FinishAll
}  // namespace TrackReason

/// Receives the tracker's reports. Must outlive the tracker and every reading that it holds. The operations should not
/// throw; an exception is dropped, and the report or release counts as made.
class ILicencePlateTrackerResultSink {
  public:
    /// Reports a track. `bestReading` is its best reading, and `readings` are the readings of the track with the same
    /// text, in order of arrival. The tracker owns the vector, which is valid only during the call. `reason` is a
    /// TrackReason.
    virtual void OnResult(ILicencePlateTracker* tracker, boost::shared_ptr<LicencePlate> bestReading,
                          const std::vector<LicencePlatePtr>& readings, std::int32_t reason) = 0;

    /// Called once for each reading that leaves the tracker without having been reported; `tracker` is null.
    virtual void OnMayReleaseLicencePlate(ILicencePlateTracker* tracker, boost::shared_ptr<LicencePlate> reading) = 0;

  protected:
    ~ILicencePlateTrackerResultSink() = default;
};
