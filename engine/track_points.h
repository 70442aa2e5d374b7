/// The track of readings, in the very layout in which the host reads it.
#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "sdk/plate_events.h"
#include "tracker/licence_plate.h"

namespace plate_recognition {

/// One reading: the frozen record of the contract with the date library's own value in it.
struct TrackPoint {
    std::int32_t x;
    std::int32_t y;
    std::int32_t width;
    std::int32_t height;
    boost::posix_time::ptime time;
    bool flag;
};

static_assert(sizeof(TrackPoint) == sizeof(OKM8::Analytics::TrackPoint));
static_assert(offsetof(TrackPoint, height) == offsetof(OKM8::Analytics::TrackPoint, height));
static_assert(offsetof(TrackPoint, time) == offsetof(OKM8::Analytics::TrackPoint, time));
static_assert(offsetof(TrackPoint, flag) == offsetof(OKM8::Analytics::TrackPoint, flag));
static_assert(sizeof(boost::posix_time::ptime) == sizeof(std::int64_t));

/// One entry for each reading, in the same order. Coordinates wrap, and so does the time beyond 64 bits.
std::vector<TrackPoint> TrackPointsOf(const std::vector<LicencePlatePtr>& readings);

/// The view that is handed to the host; valid while `points` stays as it is.
OKM8::Analytics::TrackPointList ViewOf(const std::vector<TrackPoint>& points);

}  // namespace plate_recognition
