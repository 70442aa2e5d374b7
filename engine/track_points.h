/// The readings of a track in the layout that the host reads.
#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "sdk/plate_events.h"
#include "tracker/licence_plate.h"

namespace plate_recognition {

/// One reading: the frozen record of the contract (sdk/plate_events.h), with the date library's type for the time.
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

/// Returns one entry per reading, in the same order. x, y is corner A; width is C.x - A.x and height C.y - A.y, which
/// wrap at 32 bits. The time is 1970-01-01 plus the time stamp in milliseconds, wrapping at 64 bits of microseconds.
/// Any thread.
std::vector<TrackPoint> TrackPointsOf(const std::vector<LicencePlatePtr>& readings);

/// Returns the view that is passed to the host; valid while `points` exists unchanged.
OKM8::Analytics::TrackPointList ViewOf(const std::vector<TrackPoint>& points);

}  // namespace plate_recognition
