#include "tracker/licence_plate_tracker.h"

#include <algorithm>
#include <array>
#include <boost/make_shared.hpp>
#include <cmath>
#include <cstddef>
#include <utility>

#include "arithmetic/arithmetic.h"

using arithmetic::WrappedDifference;
using arithmetic::WrappedMagnitude;
using arithmetic::WrappedProduct;
using arithmetic::WrappedSum;

namespace {

constexpr double sameText = 0.001;
constexpr double slowSpeed = 24.0;    // pixels per second
constexpr double frameMargin = 0.1;   // of the frame's width or height, on each side
constexpr double nearbyRadius = 0.3;  // of the mean of the frame's width and height

// The largest text distance that is accepted, for Certain, Nearby and Far.
constexpr std::array<double, 3> acceptedDistance = {1e10, 0.65, 0.35};
constexpr double largestDistance = 1.0;

bool LeavesView(const PredictedPosition& position, const LicencePlate& reading) {
    const double width = static_cast<std::int32_t>(reading.frameWidth);
    const double height = static_cast<std::int32_t>(reading.frameHeight);
    return position.x < -frameMargin * width || position.x > (1.0 + frameMargin) * width ||
           position.y < -frameMargin * height || position.y > (1.0 + frameMargin) * height;
}

template <class Container>
struct ClearOnExit {
    ~ClearOnExit() { container.clear(); }

    Container& container;
};

}  // namespace

CLicencePlateTracker::CLicencePlateTracker(ILicencePlateTrackerResultSink* sink, std::uint64_t lostTimeout,
                                           std::uint64_t maximumTrackAge, std::uint64_t readingsToReport)
    : lostTimeout_(lostTimeout), maximumTrackAge_(maximumTrackAge), readingsToReport_(readingsToReport), sink_(sink) {}

void CLicencePlateTracker::ProcessPlates(const std::vector<LicencePlatePtr>& readings, std::uint64_t frameTime) {
    // Readings that no track holds are released at the end of the frame, also when an exception ends it.
    const ClearOnExit<std::vector<Candidate>> clearing{pending_};
    CreateHolders(readings);
    Match();
    StartTracks();
    FinishTracks(frameTime);
}

// On allocation failure the readings that have no holder yet are released to the sink.
void CLicencePlateTracker::CreateHolders(const std::vector<LicencePlatePtr>& readings) {
    auto reading = readings.begin();
    try {
        pending_.reserve(readings.size());
        for (; reading != readings.end(); ++reading) {
            if (*reading) {
                pending_.push_back({boost::make_shared<LicencePlateHolder>(*reading, sink_), Closeness::Behind});
            }
        }
    } catch (...) {
        for (; reading != readings.end(); ++reading) {
            const LicencePlateHolder releasedAtOnce(*reading, sink_);
        }
        throw;
    }
}

// Each track takes at most one reading; older tracks choose first.
void CLicencePlateTracker::Match() {
    for (const boost::shared_ptr<CTrack>& track : tracks_) {
        if (pending_.empty()) {
            return;
        }
        if (const Candidate* const chosen = ChooseCandidate(*track)) {
            track->Add(chosen->holder);
            const LicencePlate* const taken = track->Last()->reading.get();
            std::erase_if(pending_,
                          [&](const Candidate& candidate) { return candidate.holder->reading.get() == taken; });
        }
    }
}

// Returns, of the candidates in the closest class, the one with the smallest text distance (the first of equals), or
// null when that distance exceeds the class's limit.
const CLicencePlateTracker::Candidate* CLicencePlateTracker::ChooseCandidate(const CTrack& track) {
    // No distance is smaller than that of a text that the track already has.
    for (const Candidate& candidate : pending_) {
        if (track.HasText(candidate.holder->reading->text)) {
            return &candidate;
        }
    }

    Closeness closest = Closeness::Behind;
    for (Candidate& candidate : pending_) {
        candidate.closeness = ClosenessOf(track, *candidate.holder);
        closest = std::min(closest, candidate.closeness);
    }
    if (closest == Closeness::Behind) {
        return nullptr;
    }

    const double accepted = acceptedDistance[static_cast<std::size_t>(closest)];
    const auto isClosest = [&](const Candidate& candidate) { return candidate.closeness == closest; };
    if (accepted > largestDistance && std::count_if(pending_.begin(), pending_.end(), isClosest) == 1) {
        return &*std::find_if(pending_.begin(), pending_.end(), isClosest);  // regardless of its text
    }
    const Candidate* chosen = nullptr;
    double smallest = largestDistance;
    for (const Candidate& candidate : pending_) {
        if (isClosest(candidate)) {
            const double distance = track.TextDistanceToNewText(candidate.holder->reading->text);
            if (chosen == nullptr || distance < smallest) {
                chosen = &candidate;
                smallest = distance;
            }
        }
    }
    return smallest <= accepted ? chosen : nullptr;
}

// REQUIRES: the track does not have the candidate's text.
CLicencePlateTracker::Closeness CLicencePlateTracker::ClosenessOf(const CTrack& track,
                                                                  const LicencePlateHolder& candidate) {
    // Only texts of hundreds of characters can differ by so little; texts of plates are not compared here.
    const std::wstring& text = candidate.reading->text;
    if (track.DistanceLowerBound(text) < sameText && track.TextDistanceToNewText(text) < sameText) {
        return Closeness::Certain;
    }
    return track.IsAhead(candidate) ? ClosenessByPosition(track, candidate) : Closeness::Behind;
}

CLicencePlateTracker::Closeness CLicencePlateTracker::ClosenessByPosition(const CTrack& track,
                                                                          const LicencePlateHolder& candidate) {
    const LicencePlate& reading = *candidate.reading;
    const PredictedPosition predicted = track.PredictAt(reading.timeStamp);
    const std::int32_t dx = WrappedDifference(predicted.x, candidate.centreX);
    const std::int32_t dy = WrappedDifference(predicted.y, candidate.centreY);
    const std::int32_t plateWidth = WrappedMagnitude(WrappedDifference(reading.cornerB.x, reading.cornerA.x));
    const std::int32_t plateHeight = WrappedMagnitude(WrappedDifference(reading.cornerC.y, reading.cornerA.y));
    if (track.Count() > 1 && WrappedMagnitude(dx) <= plateWidth &&
        WrappedMagnitude(dy) <= WrappedProduct(2, plateHeight)) {
        return Closeness::Certain;
    }

    // A sum that wrapped below zero has the root NaN, which compares as Nearby.
    const double distance = std::sqrt(WrappedSum(WrappedProduct(dy, dy), WrappedProduct(dx, dx)));
    const double radius =
        WrappedSum(static_cast<std::int32_t>(reading.frameWidth), static_cast<std::int32_t>(reading.frameHeight)) *
        nearbyRadius * 0.5;
    return distance > radius ? Closeness::Far : Closeness::Nearby;
}

void CLicencePlateTracker::StartTracks() {
    for (const Candidate& unmatched : pending_) {
        auto track = boost::make_shared<CTrack>(nextTrackId_);
        nextTrackId_ = WrappedSum(nextTrackId_, 1);
        track->Add(unmatched.holder);
        tracks_.push_back(std::move(track));
    }
}

void CLicencePlateTracker::FinishTracks(std::uint64_t now) {
    for (std::size_t index = 0; index < tracks_.size();) {
        CTrack& track = *tracks_[index];
        const LicencePlateHolderPtr& best = track.Best();
        const std::uint64_t lastTime = track.Last()->reading->timeStamp;
        bool ended = false;

        // Differences are unsigned: a frame time before the track's times makes the track old and lost at once.
        if (track.Count() >= readingsToReport_ || now - track.First()->reading->timeStamp >= maximumTrackAge_) {
            Report(track, best, TrackReason::Complete);
        }
        if (now - lastTime > lostTimeout_) {
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
            tracks_.erase(tracks_.begin() + static_cast<std::ptrdiff_t>(index));
        } else {
            ++index;
        }
    }
}

// Only the first report of a track reaches the sink. A report that throws counts as made; otherwise it could throw in
// each later frame and prevent the reports and the removal of younger tracks.
void CLicencePlateTracker::Report(CTrack& track, const LicencePlateHolderPtr& best, std::int32_t reason) {
    if (track.IsReported()) {
        return;
    }
    if (sink_ != nullptr) {
        try {
            sink_->OnResult(this, best->reading, track.ReadingsOf(best->reading->text), reason);
        } catch (...) {
            // The sink reports its own failures.
        }
    }
    best->released = true;
    track.MarkReported();
}

void CLicencePlateTracker::FinishAll() {
    while (!tracks_.empty()) {
        Report(*tracks_.front(), tracks_.front()->Best(), TrackReason::Complete);
        tracks_.erase(tracks_.begin());
    }
}
