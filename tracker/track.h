/// A track: the readings of one vehicle, and its motion.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tracker/licence_plate_holder.h"

/// A position in the frame, in pixels; it may be outside.
struct PredictedPosition {
    std::int32_t x;
    std::int32_t y;
};

/// One thread at a time. A track never loses a reading.
class CTrack {
  public:
    explicit CTrack(std::int64_t id) : id_(id) {}
    CTrack(CTrack&&) = default;  // no copies: `best_` points into a map

    /// Adds a reading. Updates the speed and the direction by exponential smoothing with factor 0.2; a movement of at
    /// most 2 pixels leaves the direction unchanged. On allocation failure it throws std::bad_alloc and the track is
    /// unchanged. REQUIRES: `holder` and its reading are not null.
    void Add(const LicencePlateHolderPtr& holder);

    /// Returns the smallest normalised distance of `text` to a text of the track: TextDistance divided by the length of
    /// the longer text, at most 1. It is 1 for an empty track; two empty texts have distance 1.
    double TextDistanceTo(const std::wstring& text) const;

    /// Returns true when the distance is 0: `text` is not empty and the track has a reading of it. Logarithmic in the
    /// number of texts.
    bool HasText(const std::wstring& text) const;

    /// Returns a lower bound of TextDistanceTo(text) for a text that the track does not have.
    double DistanceLowerBound(const std::wstring& text) const;

    /// Returns TextDistanceTo(text) for a text that the track does not have. REQUIRES: HasText(text) is false.
    double TextDistanceToNewText(const std::wstring& text) const;

    /// Returns the holder of the reading with the highest weight; of equal weights, the lexicographically smallest
    /// text. Null for an empty track.
    const LicencePlateHolderPtr& Best() const { return best_ != nullptr ? best_->second : first_; }

    /// Returns the readings of a text, in order of arrival. REQUIRES: the track has the text.
    const std::vector<LicencePlatePtr>& ReadingsOf(const std::wstring& text) const;

    /// Returns the position at a time in milliseconds, extrapolated linearly from the last two readings; the position
    /// of the last one when there are not two or when their times are equal. REQUIRES: the track is not empty.
    PredictedPosition PredictAt(std::uint64_t time) const;

    /// Returns true when the candidate is ahead of the last reading in the direction of travel, or behind it by less
    /// than a margin of 0.05 x (frame width + frame height). REQUIRES: the track is not empty.
    bool IsAhead(const LicencePlateHolder& candidate) const;

    std::uint64_t Count() const { return count_; }
    const LicencePlateHolderPtr& First() const { return first_; }
    const LicencePlateHolderPtr& Last() const { return last_; }
    double Speed() const { return speed_; }  ///< pixels per second, smoothed
    bool IsReported() const { return reported_; }
    void MarkReported() { reported_ = true; }

  private:
    using BestByText = std::map<std::wstring, LicencePlateHolderPtr>;

    void SetInitialDirection(const LicencePlateHolder& holder);
    void UpdateMotion();
    BestByText::value_type& AddText(const LicencePlatePtr& reading);
    void UpdateBest(BestByText::value_type& entry, const LicencePlateHolderPtr& holder);

    [[maybe_unused]] std::int64_t id_;
    std::uint64_t count_ = 0;
    LicencePlateHolderPtr first_;
    LicencePlateHolderPtr previous_;
    LicencePlateHolderPtr last_;
    BestByText bestByText_;
    std::map<std::wstring, std::vector<LicencePlatePtr>> readingsByText_;
    double directionX_ = 0.0;
    double directionY_ = 0.0;
    double speed_ = 128.0;
    bool reported_ = false;
    double smoothing_ = 0.2;
    const BestByText::value_type* best_ = nullptr;  // points into bestByText_, which never loses an entry
    std::size_t maxTextSize_ = 0;
};
