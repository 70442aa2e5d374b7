/// How far two plate texts are apart.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

/// Where each unit stands in a run of up to 64 units, as bits. One thread at a time fills it, any reads it.
class UnitPlaces {
  public:
    static constexpr std::size_t capacity = 64;

    /// Forgets earlier units. REQUIRES: `count` is not above the capacity.
    void Fill(const wchar_t* run, std::size_t count);

    /// Bit n is set when the unit stands at place n. REQUIRES: filled.
    std::uint64_t Of(wchar_t unit) const {
        const std::size_t index = numbers_[SlotOf(unit)];
        return index == 0 ? 0 : places_[index - 1];
    }

  private:
    static constexpr std::size_t slotCount = 2 * capacity;  // a power of two that is never full

    // The unit's slot, or the free one that it would take.
    std::size_t SlotOf(wchar_t unit) const {
        std::size_t slot = static_cast<std::size_t>(unit) % slotCount;
        while (numbers_[slot] != 0 && units_[numbers_[slot] - std::size_t{1}] != unit) {
            slot = (slot + 1) % slotCount;
        }
        return slot;
    }

    std::array<std::uint8_t, slotCount> numbers_;  // 1 and up, of the different units; 0 for a free slot
    std::array<wchar_t, capacity> units_;
    std::array<std::uint64_t, capacity> places_;
};

/// One text, made ready for being compared with many others. Any thread.
class TextPattern {
  public:
    /// The text must outlive the pattern and stay as it is.
    explicit TextPattern(const std::wstring& text);
    explicit TextPattern(const std::wstring&& text) = delete;

    /// The distance as TextDistance gives it.
    double DistanceTo(const std::wstring& other) const;

  private:
    std::size_t LongestCommonSubsequence(const std::wstring& other) const;
    std::size_t LongestCommonSubsequenceInRuns(const std::wstring& other) const;

    const std::wstring& pattern_;
    UnitPlaces firstRun_;
};

/// Weighted Levenshtein distance: 0.5 to delete or insert a unit, 1.0 to replace one by another. Exact and
/// case-sensitive, unit by unit. A multiple of 0.5, and at most half the sum of the lengths. Any thread.
double TextDistance(const std::wstring& first, const std::wstring& second);

/// The least distance between two texts that are not the same.
inline constexpr double minTextDistance = 0.5;
