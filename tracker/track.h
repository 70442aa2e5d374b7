/// One vehicle's readings, and where it is heading.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tracker/licence_plate_holder.h"

/// A place in the picture, in pixels.
struct PredictedPosition {
    std::int32_t x;
    std::int32_t y;
};

/// One thread at a time. A track that has taken a reading stays non-empty; the operations that say so need one.
class CTrack {
  public:
    explicit CTrack(std::int64_t id) : id_(id) {}
    CTrack(CTrack&&) = default;  // not copied: `best` points into a map

    /// Takes a further reading. On allocation failure it throws std::bad_alloc and the track stays as it was.
    /// REQUIRES: a holder with a reading.
    void Add(const LicencePlateHolderPtr& holder);

    /// The smallest text distance between `text` and any text of the track, each divided by the longer length: 1 at
    /// most, and 1 for a track without texts. Two empty texts count as nothing in common.
    double TextDistanceTo(const std::wstring& text) const;

    /// Whether the distance is 0: the track has a reading of that text, which is not empty. A look into a map.
    bool Knows(const std::wstring& text) const;

    /// No text that the track does not know has a smaller distance.
    double DistanceLowerBound(const std::wstring& text) const;

    /// TextDistanceTo without the look for that very text. REQUIRES: Knows(text) is false.
    double TextDistanceToUnknown(const std::wstring& text) const;

    /// The holder of the highest weight; among equals that of the smallest text. Empty for an empty track.
    const LicencePlateHolderPtr& Best() const { return best_ != nullptr ? best_->second : first_; }

    /// The readings that have that text, in the order of their arrival. REQUIRES: a text that the track has.
    const std::vector<LicencePlatePtr>& ReadingsOf(const std::wstring& text) const;

    /// Linear extrapolation from the last two readings; the last one's place when there are no two, or when they have
    /// the same time. REQUIRES: a reading.
    PredictedPosition PredictAt(std::uint64_t time) const;

    /// True when the candidate is not after the last reading in the direction of travel, by more than a margin.
    /// REQUIRES: a reading.
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
    const BestByText::value_type* best_ = nullptr;  // in the map, which never loses an entry
    std::size_t maxTextSize_ = 0;
};
