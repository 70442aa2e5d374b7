/// The ledger: what became of every frame, reading and track of a run, and of one vehicle.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "engine/tracking.h"
#include "tools/recording/recording.h"

namespace ledger {

/// Counts. Every frame is in exactly one of the first group, every reading in one of the second, and so on.
struct Counts {
    std::uint64_t frames = 0;
    std::map<std::string, std::uint64_t> framesRefused;  ///< by the detector's error text
    std::uint64_t framesNotSearched = 0;                 ///< accepted, but the engine was not called
    std::uint64_t framesEngineFailed = 0;                ///< the engine threw an exception
    std::uint64_t framesWithoutPlates = 0;
    std::uint64_t framesWithPlates = 0;

    std::uint64_t readings = 0;  ///< plates that the engine returned
    std::uint64_t readingsJoined = 0;
    std::uint64_t readingsBegan = 0;  ///< began a track

    std::uint64_t tracks = 0;
    std::array<std::uint64_t, 4> tracksReported{};  ///< by TrackReason
    std::uint64_t tracksUnreported = 0;             ///< the detector ended first

    std::uint64_t eventsRaised = 0;
    std::map<std::string, std::uint64_t> eventsFailed;  ///< by the step at which they failed
    std::uint64_t eventsUnexpected = 0;  ///< raised, and no track was to be reported with that text and time

    std::uint64_t rangesRefused = 0;  ///< calls of SetPlateRange

    Counts& operator+=(const Counts& other);
};

/// Two sums that must be equal.
struct Balance {
    std::string text;  ///< "frames = refused + ..."
    std::uint64_t left = 0;
    std::uint64_t right = 0;
    bool Closes() const { return left == right; }
};
std::vector<Balance> BalancesOf(const Counts& counts);

/// A line of the ledger. An indented one is a part of the one before it that is not indented.
struct Line {
    std::string text;
    std::uint64_t count = 0;
    bool isPart = false;
};
std::vector<Line> LinesOf(const Counts& counts);
recording::Json JsonOf(const Counts& counts);

/// Names the reason of a report, after "reported": "because ...". REQUIRES: a TrackReason.
const char* ReasonText(std::int32_t reason);

/// A reading of a track.
struct TrackReading {
    std::size_t frame = 0;  ///< number of the channel's frame
    std::uint64_t timeMs = 0;
    std::string text;    ///< UTF-8
    int confidence = 0;  ///< percent
    tagRECT rectangle = {};
};

/// The life of one track.
struct Track {
    std::vector<TrackReading> readings;
    std::optional<std::int32_t> reason;  ///< TrackReason, once it is reported
    std::uint64_t reportTimeMs = 0;      ///< time of the frame in which it was reported
    std::string reportedText;
    std::uint64_t reportedTimeMs = 0;  ///< time of the reading that is reported
    bool hasEvent = false;             ///< the event was raised
    std::string failedStep;            ///< of an event that was not raised; empty for none
    bool isRemoved = false;
    std::uint64_t removalTimeMs = 0;
};

/// Follows one detector: gives the recorded readings to a tracker of its own and looks where they go. One thread at a
/// time.
class ChannelLedger {
  public:
    /// Without `keepsTracks`, Tracks stays empty, and the memory in use does not grow with the run.
    ChannelLedger(const plate_recognition::EarlyReport& early, bool keepsTracks);
    ~ChannelLedger();
    ChannelLedger(const ChannelLedger&) = delete;
    ChannelLedger& operator=(const ChannelLedger&) = delete;

    /// Adds the channel's next frame.
    void Add(const recording::Frame& frame);

    /// The counts as if the detector ended now.
    Counts CountsSoFar() const;
    /// All tracks, in the order in which they began.
    const std::vector<std::unique_ptr<Track>>& Tracks() const;

  private:
    class Follower;
    std::unique_ptr<Follower> follower_;
};

/// The counts of a whole recording.
Counts CountsOf(const recording::Recording& recording);

/// Returns the weighted Levenshtein distance of two texts, divided by the length of the longer one: 0 for equal ones,
/// at most 1.
double TextDistanceOf(const std::string& one, const std::string& other);

/// Returns the early report that a channel's settings ask for; `settings` as they were given to the detector.
plate_recognition::EarlyReport EarlyReportOf(const std::vector<std::pair<std::string, std::string>>& settings);

}  // namespace ledger
