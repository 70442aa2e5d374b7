/// What the detector gives to the tracker. Tools that follow the tracker's decisions use it, too.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>

#include "engine/engine_records.h"
#include "tracker/licence_plate.h"
#include "tracker/licence_plate_tracker.h"

namespace plate_recognition {

/// Milliseconds after which a track is lost.
inline constexpr std::int32_t defaultLostTimeout = 3000;

/// When a track is reported before it leaves the view. Times are in seconds; a negative number is no limit.
struct EarlyReport {
    bool isWanted = false;
    std::int32_t waitSeconds = 0;
    std::int32_t readings = 0;
};

/// `sink` as for the tracker.
boost::shared_ptr<CLicencePlateTracker> MakeTracker(ILicencePlateTrackerResultSink* sink, std::int32_t lostTimeout,
                                                    const EarlyReport& early);

/// No frame has more plates: a larger count is wrong, and the records may be, too. The frame counts as one without
/// plates.
inline constexpr int maxPlateCount = 1024;

/// Returns a record of an engine's array of engineRecordCount. A count may exceed the array: plates beyond it are
/// empty. REQUIRES: the index is not negative.
const RPLATE& PlateAt(const RPLATE* plates, int index);

/// Returns the reading of a plate that was recognised in an image of that size. `frameNumber` counts from 1.
LicencePlatePtr ReadingOf(const RPLATE& plate, std::uint32_t frameWidth, std::uint32_t frameHeight,
                          std::uint64_t timeStamp, std::uint64_t plateId, std::uint64_t frameNumber);

}  // namespace plate_recognition
