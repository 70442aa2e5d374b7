/// Readings in short form for tests, and a sink that records its calls.
#pragma once

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tracker/licence_plate_tracker_interface.h"

namespace tracker_test {

inline constexpr std::uint64_t NoLimit = 2147483647;

/// A reading of a 1280 x 720 frame, 100 x 30 pixels, unless a test says otherwise.
struct Reading {
    std::uint64_t id = 0;
    std::wstring text;
    std::int32_t x = 0;  ///< centre
    std::int32_t y = 0;
    std::uint64_t time = 0;
    std::int32_t weight = 100;
    std::uint32_t frameWidth = 1280;
    std::uint32_t frameHeight = 720;

    operator LicencePlatePtr() const {
        const auto plate = boost::make_shared<LicencePlate>();
        plate->timeStamp = time;
        plate->frameWidth = frameWidth;
        plate->frameHeight = frameHeight;
        plate->cornerA = {x - 50, y - 15};
        plate->cornerB = {x + 50, y - 15};
        plate->cornerC = {x + 50, y + 15};
        plate->cornerD = {x - 50, y + 15};
        plate->weight = weight;
        plate->text = text;
        plate->id = id;
        return plate;
    }
};

struct Call {
    enum class Kind { Result, Release };
    Kind kind = Kind::Release;
    std::uint64_t readingId = 0;
    std::int32_t reason = -1;
    std::vector<std::uint64_t> readingIds;

    bool operator==(const Call&) const = default;
};

inline Call Result(std::uint64_t best, std::int32_t reason, std::vector<std::uint64_t> readings) {
    return {Call::Kind::Result, best, reason, std::move(readings)};
}

inline Call Release(std::uint64_t id) {
    return {Call::Kind::Release, id, -1, {}};
}

inline std::ostream& operator<<(std::ostream& stream, const Call& call) {
    if (call.kind == Call::Kind::Release) {
        return stream << "release " << call.readingId;
    }
    stream << "result " << call.readingId << " reason " << call.reason << " of";
    for (const std::uint64_t id : call.readingIds) {
        stream << ' ' << id;
    }
    return stream;
}

inline void PrintTo(const Call& call, std::ostream* stream) {
    *stream << call;
}

class RecordingSink final : public ILicencePlateTrackerResultSink {
  public:
    void OnResult(ILicencePlateTracker* tracker, boost::shared_ptr<LicencePlate> bestReading,
                  const std::vector<LicencePlatePtr>& readings, std::int32_t reason) override {
        lastTracker = tracker;
        Call call{Call::Kind::Result, bestReading->id, reason, {}};
        for (const LicencePlatePtr& reading : readings) {
            call.readingIds.push_back(reading->id);
        }
        calls.push_back(std::move(call));
    }

    void OnMayReleaseLicencePlate(ILicencePlateTracker* tracker, boost::shared_ptr<LicencePlate> reading) override {
        EXPECT_EQ(tracker, nullptr);
        calls.push_back({Call::Kind::Release, reading->id, -1, {}});
    }

    /// Returns the calls since the last Take and clears the list.
    std::vector<Call> Take() { return std::exchange(calls, {}); }

    std::vector<Call> Results() const {
        std::vector<Call> results;
        for (const Call& call : calls) {
            if (call.kind == Call::Kind::Result) {
                results.push_back(call);
            }
        }
        return results;
    }

    std::vector<Call> calls;
    ILicencePlateTracker* lastTracker = nullptr;
};

}  // namespace tracker_test
