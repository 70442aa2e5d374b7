/// The distance of two plate texts. A unit is one wchar_t.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

/// The positions of each unit in a run of up to 64 units, as a bit set. Any thread may read while none fills.
class UnitPositions {
  public:
    static constexpr std::size_t capacity = 64;

    /// Replaces the contents. REQUIRES: `count` is at most the capacity.
    void Fill(const wchar_t* run, std::size_t count);

    /// Returns a set with bit n for each position n of the unit. REQUIRES: filled.
    std::uint64_t Of(wchar_t unit) const {
        const std::size_t index = numbers_[SlotOf(unit)];
        return index == 0 ? 0 : positions_[index - 1];
    }

  private:
    static constexpr std::size_t slotCount = 2 * capacity;  // a power of two; the hash table is at most half full

    // Returns the slot of the unit, or the free slot for it.
    std::size_t SlotOf(wchar_t unit) const {
        std::size_t slot = static_cast<std::size_t>(unit) % slotCount;
        while (numbers_[slot] != 0 && units_[numbers_[slot] - std::size_t{1}] != unit) {
            slot = (slot + 1) % slotCount;
        }
        return slot;
    }

    std::array<std::uint8_t, slotCount> numbers_;  // 1-based numbers of the distinct units; 0 for a free slot
    std::array<wchar_t, capacity> units_;
    std::array<std::uint64_t, capacity> positions_;
};

/// A text prepared for comparison with many others. Any thread.
class TextPattern {
  public:
    /// The text is not copied: it must outlive the pattern and not change.
    explicit TextPattern(const std::wstring& text);
    explicit TextPattern(const std::wstring&& text) = delete;

    /// Returns what TextDistance returns. Throws std::bad_alloc, if at all, for a pattern of more than 64 units.
    double DistanceTo(const std::wstring& other) const;

  private:
    std::size_t LongestCommonSubsequence(const std::wstring& other) const;
    std::size_t LongestCommonSubsequenceInRuns(const std::wstring& other) const;

    const std::wstring& pattern_;
    UnitPositions firstRun_;
};

/// Returns the weighted Levenshtein distance: 0.5 for each insertion and deletion, 1.0 for each replacement, of units
/// compared exactly (case-sensitive). It is a multiple of 0.5 and at most half the sum of the lengths. Any thread.
double TextDistance(const std::wstring& first, const std::wstring& second);

/// The smallest distance of two different texts.
inline constexpr double minTextDistance = 0.5;
