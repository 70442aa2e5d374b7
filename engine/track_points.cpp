#include "engine/track_points.h"

#include "arithmetic/arithmetic.h"
#include "detector/event_time.h"

namespace plate_recognition {

namespace {

constexpr std::uint64_t microsecondsPerMillisecond = 1000;

}  // namespace

std::vector<TrackPoint> TrackPointsOf(const std::vector<LicencePlatePtr>& readings) {
    std::vector<TrackPoint> points;
    points.reserve(readings.size());
    for (const LicencePlatePtr& reading : readings) {
        const PlateCorner& topLeft = reading->cornerA;
        const PlateCorner& opposite = reading->cornerC;
        const auto time = static_cast<std::int64_t>(reading->timeStamp * microsecondsPerMillisecond);
        points.push_back({topLeft.x, topLeft.y, arithmetic::WrappedDifference(opposite.x, topLeft.x),
                          arithmetic::WrappedDifference(opposite.y, topLeft.y), DateTimeOfMicroseconds(time), false});
    }
    return points;
}

OKM8::Analytics::TrackPointList ViewOf(const std::vector<TrackPoint>& points) {
    const auto* const first = reinterpret_cast<const OKM8::Analytics::TrackPoint*>(points.data());
    return {first, first + points.size(), first + points.capacity()};
}

}  // namespace plate_recognition
