#include "tracker/track.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "arithmetic/arithmetic.h"
#include "tracker/text_distance.h"

using arithmetic::Truncated;
using arithmetic::WrappedDifference;
using arithmetic::WrappedProduct;
using arithmetic::WrappedSum;

namespace {

constexpr double ignoredMovement = 2.0;  // pixels; movements up to this do not change the direction

std::int32_t FrameWidthOf(const LicencePlateHolder& holder) {
    return static_cast<std::int32_t>(holder.reading->frameWidth);
}

std::int32_t FrameHeightOf(const LicencePlateHolder& holder) {
    return static_cast<std::int32_t>(holder.reading->frameHeight);
}

// Time differences are unsigned and wrap: an earlier time gives a huge one.
double MillisecondsBetween(std::uint64_t earlier, std::uint64_t later) {
    return static_cast<double>(later - earlier);
}

std::int32_t Extrapolate(std::int32_t last, std::int32_t before, double step, double ahead) {
    return Truncated(last + WrappedDifference(last, before) / step * ahead);
}

double Normalised(double distance, std::size_t length) {
    return distance / static_cast<double>(length);
}

}  // namespace

void CTrack::Add(const LicencePlateHolderPtr& holder) {
    BestByText::value_type& entry = AddText(holder->reading);  // first, because it may throw
    previous_ = std::move(last_);
    last_ = holder;
    if (count_ == 0) {
        first_ = holder;
        SetInitialDirection(*holder);
    } else {
        UpdateMotion();
    }
    UpdateBest(entry, holder);
    ++count_;
}

// Adds the reading to those of its text, and the text to the texts; on allocation failure neither. The entry of a new
// text has no holder yet.
CTrack::BestByText::value_type& CTrack::AddText(const LicencePlatePtr& reading) {
    std::vector<LicencePlatePtr>& sameText = readingsByText_[reading->text];
    sameText.push_back(reading);
    try {
        return *bestByText_.try_emplace(reading->text).first;
    } catch (...) {
        sameText.pop_back();
        throw;
    }
}

void CTrack::UpdateBest(BestByText::value_type& entry, const LicencePlateHolderPtr& holder) {
    const LicencePlatePtr& reading = holder->reading;
    if (!entry.second || entry.second->reading->weight < reading->weight) {
        entry.second = holder;
        const std::int32_t highest = best_ != nullptr ? best_->second->reading->weight : reading->weight;
        if (best_ == nullptr || highest < reading->weight ||
            (highest == reading->weight && entry.first < best_->first)) {
            best_ = &entry;
        }
    }
    maxTextSize_ = std::max(maxTextSize_, reading->text.size());
}

// A plate that enters in the left or right third is assumed to move to the other side, and one that enters in the upper
// or lower half to move down or up. This first direction is not normalised.
void CTrack::SetInitialDirection(const LicencePlateHolder& holder) {
    const std::int32_t width = FrameWidthOf(holder);
    const std::int32_t height = FrameHeightOf(holder);
    directionX_ = (holder.centreX < width / 3 ? 1 : 0) - (holder.centreX > WrappedProduct(2, width) / 3 ? 1 : 0);
    directionY_ = holder.centreY < height / 2 ? 1 : -1;
}

void CTrack::UpdateMotion() {
    const std::int32_t dx = WrappedDifference(last_->centreX, previous_->centreX);
    const std::int32_t dy = WrappedDifference(last_->centreY, previous_->centreY);
    const double distance = std::sqrt(static_cast<double>(dx) * dx + static_cast<double>(dy) * dy);
    const double seconds = MillisecondsBetween(previous_->reading->timeStamp, last_->reading->timeStamp) / 1000.0;
    // Equal times give infinity or NaN, which stays and never counts as slow.
    speed_ = smoothing_ * (distance / seconds) + (1.0 - smoothing_) * speed_;

    if (std::fabs(distance) > ignoredMovement) {
        const double x = (1.0 - smoothing_) * directionX_ + smoothing_ * dx / distance;
        const double y = (1.0 - smoothing_) * directionY_ + smoothing_ * dy / distance;
        const double length = std::sqrt(x * x + y * y);
        directionX_ = x / length;
        directionY_ = y / length;
    }
}

double CTrack::TextDistanceTo(const std::wstring& text) const {
    return HasText(text) ? 0.0 : TextDistanceToNewText(text);
}

bool CTrack::HasText(const std::wstring& text) const {
    return !text.empty() && bestByText_.contains(text);
}

double CTrack::DistanceLowerBound(const std::wstring& text) const {
    return Normalised(minTextDistance, std::max(maxTextSize_, text.size()));
}

double CTrack::TextDistanceToNewText(const std::wstring& text) const {
    const TextPattern pattern(text);
    double smallest = 1.0;
    for (const auto& [ownText, holder] : bestByText_) {
        const std::size_t longer = std::max(ownText.size(), text.size());
        const std::size_t shorter = std::min(ownText.size(), text.size());
        if (longer == 0) {
            continue;  // two empty texts
        }
        // Different texts of equal length differ by at least a replacement, others by an insertion per extra unit.
        const double least = shorter == longer ? 1.0 : 0.5 * static_cast<double>(longer - shorter);
        if (Normalised(least, longer) < smallest) {
            smallest = std::min(smallest, Normalised(pattern.DistanceTo(ownText), longer));
        }
    }
    return smallest;
}

const std::vector<LicencePlatePtr>& CTrack::ReadingsOf(const std::wstring& text) const {
    return readingsByText_.at(text);
}

PredictedPosition CTrack::PredictAt(std::uint64_t time) const {
    PredictedPosition position{last_->centreX, last_->centreY};
    if (count_ > 1 && last_->reading->timeStamp != previous_->reading->timeStamp) {
        const double step = MillisecondsBetween(previous_->reading->timeStamp, last_->reading->timeStamp);
        const double ahead = MillisecondsBetween(last_->reading->timeStamp, time);
        position.x = Extrapolate(last_->centreX, previous_->centreX, step, ahead);
        position.y = Extrapolate(last_->centreY, previous_->centreY, step, ahead);
    }
    return position;
}

bool CTrack::IsAhead(const LicencePlateHolder& candidate) const {
    const double margin = WrappedSum(FrameWidthOf(candidate), FrameHeightOf(candidate)) * 0.1 * 0.5;
    const double alongX = (candidate.centreX - (last_->centreX - directionX_ * margin)) * directionX_;
    const double alongY = (candidate.centreY - (last_->centreY - directionY_ * margin)) * directionY_;
    return alongX + alongY > 0.0;
}
