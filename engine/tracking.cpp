#include "engine/tracking.h"

#include <boost/make_shared.hpp>

#include "engine/engine_text.h"

namespace plate_recognition {

namespace {

constexpr std::int32_t readingWeight = 100;
constexpr std::int64_t noLimit = 2147483647;
constexpr std::int64_t millisecondsPerSecond = 1000;

PlateCorner CornerOf(const EngineCorner& corner) {
    return {corner.x, corner.y};
}

}  // namespace

boost::shared_ptr<CLicencePlateTracker> MakeTracker(ILicencePlateTrackerResultSink* sink, std::int32_t lostTimeout,
                                                    const EarlyReport& early) {
    const std::int64_t maxAge = early.isWanted ? early.waitSeconds * millisecondsPerSecond : noLimit;
    const std::int64_t enoughReadings = early.isWanted ? early.readings : noLimit;
    // Converted to unsigned, a negative number is no limit.
    return boost::make_shared<CLicencePlateTracker>(sink, static_cast<std::uint64_t>(lostTimeout),
                                                    static_cast<std::uint64_t>(maxAge),
                                                    static_cast<std::uint64_t>(enoughReadings));
}

const RPLATE& PlateAt(const RPLATE* plates, int index) {
    static constexpr RPLATE emptyPlate = {};
    return index < engineRecordCount ? plates[index] : emptyPlate;
}

LicencePlatePtr ReadingOf(const RPLATE& plate, std::uint32_t frameWidth, std::uint32_t frameHeight,
                          std::uint64_t timeStamp, std::uint64_t plateId, std::uint64_t frameNumber) {
    const auto reading = boost::make_shared<LicencePlate>();
    reading->timeStamp = timeStamp;
    reading->frameWidth = frameWidth;
    reading->frameHeight = frameHeight;
    // The tracker's corner B is to the right of A, and C below A; the engine's corner 2 is below corner 1.
    reading->cornerA = CornerOf(plate.corner1);
    reading->cornerB = CornerOf(plate.corner3);
    reading->cornerC = CornerOf(plate.corner2);
    reading->cornerD = CornerOf(plate.corner4);
    reading->weight = readingWeight;
    reading->text = ReadingTextOf(plate);
    reading->id = plateId;
    reading->frameNumber = frameNumber;
    return reading;
}

}  // namespace plate_recognition
