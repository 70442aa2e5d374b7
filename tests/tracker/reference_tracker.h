/// A slow and literal reference tracker, with which the real one is compared call by call.
///
/// It shares only the record of a reading with the real one: its arithmetic, its text distance and its bookkeeping are
/// separate.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tracker/licence_plate.h"

namespace reference {

/// One call of the sink.
struct Call {
    enum class Kind { Result, Release };
    Kind kind = Kind::Release;
    std::uint64_t readingId = 0;
    std::int32_t reason = -1;               ///< results only
    std::vector<std::uint64_t> readingIds;  ///< results only
    /// Releases with the same number above 0 may occur in any order: they happen in one destruction, whose order is
    /// unspecified.
    unsigned group = 0;
};

/// The sink calls in their order.
struct Log {
    std::vector<Call> calls;
    unsigned groups = 0;
    unsigned openGroup = 0;
};

/// Counts how often each branch was used.
struct Coverage {
    std::array<std::uint64_t, 4> reported{};  ///< by reason
    std::array<std::uint64_t, 3> accepted{};  ///< by candidate list
    std::array<std::uint64_t, 3> refused{};
    std::uint64_t releases = 0;
    std::uint64_t notANumberSpeeds = 0;
    std::uint64_t infiniteSpeeds = 0;
    std::uint64_t notANumberDistances = 0;
};

/// Weighted Levenshtein distance over the whole matrix.
double TextDistance(const std::wstring& from, const std::wstring& to);

class Tracker {
  public:
    Tracker(Log& log, Coverage& coverage, std::uint64_t lostTimeout, std::uint64_t maximumAge,
            std::uint64_t readingsToReport);
    ~Tracker();
    Tracker(const Tracker&) = delete;
    Tracker& operator=(const Tracker&) = delete;

    void ProcessPlates(const std::vector<LicencePlatePtr>& readings, std::uint64_t now);
    void SetLostTimeout(std::uint64_t milliseconds);
    void FinishAll();

  private:
    struct Holder {
        Holder(Log& callLog, LicencePlatePtr held);
        ~Holder();
        Holder(const Holder&) = delete;
        Holder& operator=(const Holder&) = delete;

        Log& log;
        LicencePlatePtr reading;
        std::int32_t cx = 0;
        std::int32_t cy = 0;
        bool released = false;
    };
    using HolderRef = std::shared_ptr<Holder>;

    struct Track {
        std::uint64_t count = 0;
        HolderRef first;
        HolderRef previous;
        HolderRef last;
        std::map<std::wstring, HolderRef> bestByText;
        std::map<std::wstring, std::vector<LicencePlatePtr>> readingsByText;
        double directionX = 0.0;
        double directionY = 0.0;
        double speed = 128.0;
        bool reported = false;
    };
    using TrackRef = std::shared_ptr<Track>;

    struct Point {
        std::int32_t x;
        std::int32_t y;
    };

    static double DistanceToTrack(const Track& track, const std::wstring& text);
    static HolderRef BestOf(const Track& track);
    static Point Predict(const Track& track, std::uint64_t time);

    void Match(std::vector<HolderRef>& pending);
    void Update(Track& track, const HolderRef& holder);
    void Finish(std::uint64_t now);
    void Report(Track& track, const HolderRef& best, std::int32_t reason);

    Log& log_;
    Coverage& coverage_;
    std::uint64_t lost_;
    std::uint64_t age_;
    std::uint64_t enough_;
    std::vector<TrackRef> tracks_;
};

}  // namespace reference
