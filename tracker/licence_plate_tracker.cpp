#include "tracker/licence_plate_tracker.h"

#include <algorithm>
#include <array>
#include <boost/make_shared.hpp>
#include <cmath>
#include <cstddef>

#include "tracker/arithmetic.h"

using tracking::WrappedDifference;
using tracking::WrappedMagnitude;
using tracking::WrappedProduct;
using tracking::WrappedSum;

namespace {

constexpr double sameText = 0.001;
constexpr double slowSpeed = 24.0;    // pixels per second
constexpr double frameMargin = 0.1;   // of the frame's size, on every side
constexpr double nearbyRadius = 0.3;  // of the frame's mean side

// How close a candidate is to a track, and the text distance that is forgiven there.
enum Closeness : std::size_t { Certain, Nearby, Far, closenessCount };
constexpr std::array<double, closenessCount> acceptedDistance = {1e10, 0.65, 0.35};

struct Candidate {
    LicencePlateHolderPtr holder;
    double textDistance;
};

Closeness ClosenessByPosition(const CTrack& track, const LicencePlateHolder& candidate) {
    const LicencePlate& reading = *candidate.reading;
    const PredictedPosition predicted = track.PredictAt(reading.timeStamp);
    const std::int32_t dx = WrappedDifference(predicted.x, candidate.centreX);
    const std::int32_t dy = WrappedDifference(predicted.y, candidate.centreY);
    const std::int32_t plateWidth = WrappedMagnitude(WrappedDifference(reading.cornerB.x, reading.cornerA.x));
    const std::int32_t plateHeight = WrappedMagnitude(WrappedDifference(reading.cornerC.y, reading.cornerA.y));
    if (track.Count() > 1 && WrappedMagnitude(dx) <= plateWidth &&
        WrappedMagnitude(dy) <= WrappedProduct(2, plateHeight)) {
        return Certain;
    }

    // A square that wrapped below zero has no root, and no number is far.
    const double distance = std::sqrt(WrappedSum(WrappedProduct(dy, dy), WrappedProduct(dx, dx)));
    const double radius =
        WrappedSum(static_cast<std::int32_t>(reading.frameWidth), static_cast<std::int32_t>(reading.frameHeight)) *
        nearbyRadius * 0.5;
    return distance > radius ? Far : Nearby;
}

// The candidate whose text is closest to the track's, among those that stand closest; null when none is close enough.
LicencePlateHolderPtr Choose(const CTrack& track, const std::vector<LicencePlateHolderPtr>& pending) {
    std::array<std::vector<Candidate>, closenessCount> candidates;
    std::vector<Candidate> all;
    all.reserve(pending.size());
    for (const LicencePlateHolderPtr& holder : pending) {
        all.push_back({holder, track.TextDistanceTo(holder->reading->text)});
    }
    for (const Candidate& candidate : all) {
        if (candidate.textDistance < sameText) {
            candidates[Certain].push_back(candidate);
        }
    }
    for (const Candidate& candidate : all) {
        if (track.IsAhead(*candidate.holder)) {
            candidates[ClosenessByPosition(track, *candidate.holder)].push_back(candidate);
        }
    }

    for (std::size_t closeness = 0; closeness < closenessCount; ++closeness) {
        const std::vector<Candidate>& list = candidates[closeness];
        if (list.empty()) {
            continue;
        }
        const auto closest = std::min_element(list.begin(), list.end(), [](const Candidate& a, const Candidate& b) {
            return a.textDistance < b.textDistance;
        });
        return closest->textDistance <= acceptedDistance[closeness] ? closest->holder : nullptr;
    }
    return nullptr;
}

bool LeavesView(const PredictedPosition& position, const LicencePlate& reading) {
    const double width = static_cast<std::int32_t>(reading.frameWidth);
    const double height = static_cast<std::int32_t>(reading.frameHeight);
    return position.x < -frameMargin * width || position.x > (1.0 + frameMargin) * width ||
           position.y < -frameMargin * height || position.y > (1.0 + frameMargin) * height;
}

}  // namespace

CLicencePlateTracker::CLicencePlateTracker(ILicencePlateTrackerResultSink* resultSink, std::uint64_t lostAfter,
                                           std::uint64_t completeAfter, std::uint64_t completeCount)
    : lostTimeout(lostAfter), maximumTrackAge(completeAfter), readingsToReport(completeCount), sink(resultSink) {}

void CLicencePlateTracker::ProcessPlates(const std::vector<LicencePlatePtr>& readings, std::uint64_t frameTime) {
    PendingHolders pending;
    pending.reserve(readings.size());
    for (const LicencePlatePtr& reading : readings) {
        if (reading) {
            pending.push_back(boost::make_shared<LicencePlateHolder>(reading, sink));
        }
    }
    Match(pending);
    StartTracks(pending);
    FinishTracks(frameTime);
}

// Each track takes at most one reading; older tracks choose first.
void CLicencePlateTracker::Match(PendingHolders& pending) {
    for (const boost::shared_ptr<CTrack>& track : tracks) {
        if (pending.empty()) {
            return;
        }
        const LicencePlateHolderPtr chosen = Choose(*track, pending);
        if (chosen) {
            track->Add(chosen);
            std::erase_if(pending,
                          [&](const LicencePlateHolderPtr& holder) { return holder->reading == chosen->reading; });
        }
    }
}

void CLicencePlateTracker::StartTracks(const PendingHolders& unmatched) {
    for (const LicencePlateHolderPtr& holder : unmatched) {
        const auto track = boost::make_shared<CTrack>(nextTrackId);
        nextTrackId = WrappedSum(nextTrackId, 1);
        track->Add(holder);
        tracks.push_back(track);
    }
}

void CLicencePlateTracker::FinishTracks(std::uint64_t now) {
    for (std::size_t index = 0; index < tracks.size();) {
        CTrack& track = *tracks[index];
        const LicencePlateHolderPtr best = track.Best();
        const std::uint64_t lastTime = track.Last()->reading->timeStamp;
        bool ended = false;

        // Differences are unsigned: a frame from before the track's time makes it old and lost at once.
        if (track.Count() >= readingsToReport || now - track.First()->reading->timeStamp >= maximumTrackAge) {
            Report(track, best, TrackReason::Complete);
        }
        if (now - lastTime > lostTimeout) {
            Report(track, best, TrackReason::Lost);
            ended = true;
        }
        if (track.Count() > 1 && lastTime < now && LeavesView(track.PredictAt(now), *best->reading)) {
            Report(track, best, TrackReason::OutOfView);
            ended = true;
        }
        if (track.Speed() < slowSpeed) {
            Report(track, best, TrackReason::Slow);
        }

        if (ended) {
            tracks.erase(tracks.begin() + static_cast<std::ptrdiff_t>(index));
        } else {
            ++index;
        }
    }
}

// Only the first report of a track reaches the sink.
void CLicencePlateTracker::Report(CTrack& track, const LicencePlateHolderPtr& best, std::int32_t reason) {
    if (track.IsReported()) {
        return;
    }
    if (sink != nullptr) {
        sink->OnResult(this, best->reading, track.ReadingsOf(best->reading->text), reason);
    }
    best->released = true;
    track.MarkReported();
}

void CLicencePlateTracker::FinishAll() {
    while (!tracks.empty()) {
        Report(*tracks.front(), tracks.front()->Best(), TrackReason::Complete);
        tracks.erase(tracks.begin());
    }
}
