#include "tests/tracker/reference_tracker.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace reference {

namespace {

// Sums, differences and products of 32-bit numbers, reduced to their low 32 bits.
std::int32_t Low32(std::int64_t value) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(value)));
}

std::int32_t Sum(std::int32_t a, std::int32_t b) {
    return Low32(std::int64_t{a} + b);
}
std::int32_t Difference(std::int32_t a, std::int32_t b) {
    return Low32(std::int64_t{a} - b);
}
std::int32_t Product(std::int32_t a, std::int32_t b) {
    return Low32(std::int64_t{a} * b);
}
std::int32_t Magnitude(std::int32_t a) {
    return a < 0 ? Low32(-std::int64_t{a}) : a;
}

std::int32_t SquaredLength(std::int32_t x, std::int32_t y) {
    return Sum(Product(x, x), Product(y, y));
}

std::int32_t Truncated(double value) {
    if (std::isnan(value) || value >= 2147483648.0 || value <= -2147483649.0) {
        return std::numeric_limits<std::int32_t>::min();
    }
    return static_cast<std::int32_t>(std::trunc(value));
}

std::int32_t Width(const LicencePlate& reading) {
    return static_cast<std::int32_t>(reading.frameWidth);
}
std::int32_t Height(const LicencePlate& reading) {
    return static_cast<std::int32_t>(reading.frameHeight);
}

// Readings that are released during its lifetime may be released in any order.
class AnyOrder {
  public:
    explicit AnyOrder(Log& log) : log_(log), outer_(log.openGroup) { log_.openGroup = ++log_.groups; }
    ~AnyOrder() { log_.openGroup = outer_; }
    AnyOrder(const AnyOrder&) = delete;
    AnyOrder& operator=(const AnyOrder&) = delete;

  private:
    Log& log_;
    unsigned outer_;
};

}  // namespace

double TextDistance(const std::wstring& from, const std::wstring& to) {
    const std::size_t rows = from.size() + 1;
    const std::size_t columns = to.size() + 1;
    static thread_local std::vector<double> cost;  // reuses its memory
    cost.assign(rows * columns, 0.0);
    for (std::size_t row = 0; row < rows; ++row) {
        for (std::size_t column = 0; column < columns; ++column) {
            double& here = cost[row * columns + column];
            if (row == 0) {
                here = 0.5 * static_cast<double>(column);
            } else if (column == 0) {
                here = 0.5 * static_cast<double>(row);
            } else {
                const double removed = cost[(row - 1) * columns + column] + 0.5;
                const double inserted = cost[row * columns + column - 1] + 0.5;
                const double replaced =
                    cost[(row - 1) * columns + column - 1] + (from[row - 1] == to[column - 1] ? 0.0 : 1.0);
                here = std::min({removed, inserted, replaced});
            }
        }
    }
    return cost[rows * columns - 1];
}

Tracker::Holder::Holder(Log& callLog, LicencePlatePtr held) : log(callLog), reading(std::move(held)) {
    if (reading) {
        cx = Sum(reading->cornerA.x, reading->cornerB.x) / 2;
        cy = Sum(reading->cornerA.y, reading->cornerC.y) / 2;
    }
}

Tracker::Holder::~Holder() {
    if (reading && !released) {
        Call call;
        call.kind = Call::Kind::Release;
        call.readingId = reading->id;
        call.group = log.openGroup;
        log.calls.push_back(call);
    }
}

Tracker::Tracker(Log& log, Coverage& coverage, std::uint64_t lostTimeout, std::uint64_t maximumAge,
                 std::uint64_t readingsToReport)
    : log_(log), coverage_(coverage), lost_(lostTimeout), age_(maximumAge), enough_(readingsToReport) {}

Tracker::~Tracker() {
    // The order in which a vector destroys its elements is unspecified.
    const AnyOrder anyOrder(log_);
    tracks_.clear();
}

void Tracker::SetLostTimeout(std::uint64_t milliseconds) {
    lost_ = milliseconds;
}

void Tracker::ProcessPlates(const std::vector<LicencePlatePtr>& readings, std::uint64_t now) {
    std::vector<HolderRef> pending;
    for (const LicencePlatePtr& reading : readings) {
        pending.push_back(std::make_shared<Holder>(log_, reading));
    }
    Match(pending);
    for (const HolderRef& holder : pending) {
        const auto track = std::make_shared<Track>();
        Update(*track, holder);
        tracks_.push_back(track);
    }
    Finish(now);
    // The readings of tracks that began and ended in this frame are now only in the pending list.
    const AnyOrder anyOrder(log_);
    pending.clear();
}

double Tracker::DistanceToTrack(const Track& track, const std::wstring& text) {
    double smallest = 1.0;
    for (const auto& [key, holder] : track.bestByText) {
        const double quotient = TextDistance(key, text) / static_cast<double>(std::max(key.size(), text.size()));
        if (quotient < smallest) {
            smallest = quotient;
        }
    }
    return smallest;
}

Tracker::HolderRef Tracker::BestOf(const Track& track) {
    HolderRef best;
    for (const auto& [key, holder] : track.bestByText) {
        if (!best || holder->reading->weight > best->reading->weight) {
            best = holder;
        }
    }
    return best;
}

Tracker::Point Tracker::Predict(const Track& track, std::uint64_t time) {
    const Holder& last = *track.last;
    if (track.count <= 1 || last.reading->timeStamp == track.previous->reading->timeStamp) {
        return {last.cx, last.cy};
    }
    const Holder& previous = *track.previous;
    const double between = static_cast<double>(last.reading->timeStamp - previous.reading->timeStamp);
    const double beyond = static_cast<double>(time - last.reading->timeStamp);
    const double stepX = static_cast<double>(Difference(last.cx, previous.cx));
    const double stepY = static_cast<double>(Difference(last.cy, previous.cy));
    return {Truncated(last.cx + stepX / between * beyond), Truncated(last.cy + stepY / between * beyond)};
}

void Tracker::Match(std::vector<HolderRef>& pending) {
    for (const TrackRef& track : tracks_) {
        std::array<std::vector<const HolderRef*>, 3> lists;

        for (const HolderRef& candidate : pending) {
            if (DistanceToTrack(*track, candidate->reading->text) < 0.001) {
                lists[0].push_back(&candidate);
            }
        }

        const Holder& last = *track->last;
        for (const HolderRef& candidate : pending) {
            const LicencePlate& reading = *candidate->reading;
            const double frame = Sum(Width(reading), Height(reading));
            const double margin = frame * 0.1 * 0.5;
            const double dx = track->directionX;
            const double dy = track->directionY;
            const double along =
                (candidate->cx - (last.cx - dx * margin)) * dx + (candidate->cy - (last.cy - dy * margin)) * dy;
            if (!(along > 0.0)) {
                continue;
            }

            const Point expected = Predict(*track, reading.timeStamp);
            const std::int32_t offX = Difference(expected.x, candidate->cx);
            const std::int32_t offY = Difference(expected.y, candidate->cy);
            const std::int32_t plateWidth = Magnitude(Difference(reading.cornerB.x, reading.cornerA.x));
            const std::int32_t plateHeight = Magnitude(Difference(reading.cornerC.y, reading.cornerA.y));
            if (track->count > 1 && Magnitude(offX) <= plateWidth && Magnitude(offY) <= Product(2, plateHeight)) {
                lists[0].push_back(&candidate);
                continue;
            }
            const double away = std::sqrt(static_cast<double>(SquaredLength(offY, offX)));
            coverage_.notANumberDistances += std::isnan(away) ? 1u : 0u;
            lists[away > frame * 0.3 * 0.5 ? 2 : 1].push_back(&candidate);
        }

        const std::array<double, 3> thresholds = {1e10, 0.65, 0.35};
        for (std::size_t key = 0; key < lists.size(); ++key) {
            if (lists[key].empty()) {
                continue;
            }
            HolderRef nearest;
            double smallest = 0.0;
            for (const HolderRef* const candidate : lists[key]) {
                const double distance = DistanceToTrack(*track, (*candidate)->reading->text);
                if (!nearest || distance < smallest) {
                    nearest = *candidate;
                    smallest = distance;
                }
            }
            if (smallest <= thresholds[key]) {
                ++coverage_.accepted[key];
                Update(*track, nearest);
                // If one reading has two holders, the one that was not chosen is removed with the chosen one.
                const AnyOrder anyOrder(log_);
                std::vector<HolderRef> rest;
                for (const HolderRef& candidate : pending) {
                    if (candidate->reading != nearest->reading) {
                        rest.push_back(candidate);
                    }
                }
                pending = rest;
            } else {
                ++coverage_.refused[key];
            }
            break;
        }
    }
}

void Tracker::Update(Track& track, const HolderRef& holder) {
    track.previous = track.last;
    track.last = holder;
    const LicencePlate& reading = *holder->reading;
    if (track.count == 0) {
        track.first = holder;
        const std::int32_t width = Width(reading);
        const std::int32_t height = Height(reading);
        track.directionX = (holder->cx < width / 3 ? 1 : 0) - (holder->cx > Product(2, width) / 3 ? 1 : 0);
        track.directionY = holder->cy < height / 2 ? 1 : -1;
    } else {
        const std::int32_t dx = Difference(holder->cx, track.previous->cx);
        const std::int32_t dy = Difference(holder->cy, track.previous->cy);
        const double length = std::sqrt(static_cast<double>(dx) * dx + static_cast<double>(dy) * dy);
        const double seconds = static_cast<double>(reading.timeStamp - track.previous->reading->timeStamp) / 1000.0;
        const double keep = 1 - 0.2;
        track.speed = 0.2 * (length / seconds) + keep * track.speed;
        coverage_.notANumberSpeeds += std::isnan(track.speed) ? 1u : 0u;
        coverage_.infiniteSpeeds += std::isinf(track.speed) ? 1u : 0u;
        if (std::fabs(length) > 2.0) {
            const double x = keep * track.directionX + 0.2 * dx / length;
            const double y = keep * track.directionY + 0.2 * dy / length;
            const double norm = std::sqrt(x * x + y * y);
            track.directionX = x / norm;
            track.directionY = y / norm;
        }
    }
    const auto known = track.bestByText.find(reading.text);
    if (known == track.bestByText.end()) {
        track.bestByText[reading.text] = holder;
    } else if (known->second->reading->weight < reading.weight) {
        known->second = holder;
    }
    track.readingsByText[reading.text].push_back(holder->reading);
    ++track.count;
}

void Tracker::Finish(std::uint64_t now) {
    std::size_t place = 0;
    while (place < tracks_.size()) {
        bool gone = false;
        {
            Track& track = *tracks_[place];
            const HolderRef best = BestOf(track);
            if (track.count >= enough_ || now - track.first->reading->timeStamp >= age_) {
                Report(track, best, 3);
            }
            if (now - track.last->reading->timeStamp > lost_) {
                Report(track, best, 2);
                gone = true;
            }
            if (track.count > 1 && track.last->reading->timeStamp < now) {
                const Point expected = Predict(track, now);
                const std::int32_t width = Width(*best->reading);
                const std::int32_t height = Height(*best->reading);
                if (expected.x < -0.1 * width || expected.x > 1.1 * width || expected.y < -0.1 * height ||
                    expected.y > 1.1 * height) {
                    Report(track, best, 1);
                    gone = true;
                }
            }
            if (!track.reported && track.speed < 24.0) {
                Report(track, best, 0);
            }
        }
        if (gone) {
            const AnyOrder anyOrder(log_);
            tracks_.erase(tracks_.begin() + static_cast<std::ptrdiff_t>(place));
        } else {
            ++place;
        }
    }
}

void Tracker::Report(Track& track, const HolderRef& best, std::int32_t reason) {
    if (track.reported) {
        return;
    }
    Call call;
    call.kind = Call::Kind::Result;
    call.readingId = best->reading->id;
    call.reason = reason;
    for (const LicencePlatePtr& reading : track.readingsByText.at(best->reading->text)) {
        call.readingIds.push_back(reading->id);
    }
    log_.calls.push_back(call);
    ++coverage_.reported[static_cast<std::size_t>(reason)];
    best->released = true;
    track.reported = true;
}

void Tracker::FinishAll() {
    while (!tracks_.empty()) {
        Report(*tracks_.front(), BestOf(*tracks_.front()), 3);
        const AnyOrder anyOrder(log_);
        tracks_.erase(tracks_.begin());
    }
}

}  // namespace reference
