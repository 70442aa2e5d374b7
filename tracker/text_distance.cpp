#include "tracker/text_distance.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <vector>

namespace {

// One step of the bit-parallel longest common subsequence, for 64 positions of the pattern and one unit of the other
// text, by Crochemore, Iliopoulos, Pinzon and Reid (2001) in the form of Hyyro (2004). A zero bit means that the
// subsequence is longer by one from that position on. The carry connects neighbouring words.
inline std::uint64_t NextRow(std::uint64_t row, std::uint64_t matches, bool& carry) {
    const std::uint64_t matched = row & matches;
    const std::uint64_t sum = row + matched;
    const std::uint64_t carried = sum + (carry ? 1 : 0);
    carry = sum < row || carried < sum;
    return carried | (row - matched);
}

std::size_t ZerosBelow(std::size_t position, std::uint64_t row) {
    return position == 0 ? 0 : static_cast<std::size_t>(std::popcount(~row << (UnitPositions::capacity - position)));
}

}  // namespace

void UnitPositions::Fill(const wchar_t* run, std::size_t count) {
    numbers_.fill(0);
    std::uint8_t distinct = 0;
    for (std::size_t position = 0; position < count; ++position) {
        const std::size_t slot = SlotOf(run[position]);
        if (numbers_[slot] == 0) {
            units_[distinct] = run[position];
            positions_[distinct] = 0;
            numbers_[slot] = ++distinct;
        }
        positions_[numbers_[slot] - std::size_t{1}] |= std::uint64_t{1} << position;
    }
}

TextPattern::TextPattern(const std::wstring& text) : pattern_(text) {
    firstRun_.Fill(pattern_.data(), std::min(pattern_.size(), UnitPositions::capacity));
}

// A replacement costs as much as a deletion and an insertion, so the distance is 0.5 for each unit of either text that
// is not in the longest common subsequence.
double TextPattern::DistanceTo(const std::wstring& other) const {
    const std::size_t common = pattern_.size() <= UnitPositions::capacity ? LongestCommonSubsequence(other)
                                                                          : LongestCommonSubsequenceInRuns(other);
    return 0.5 * static_cast<double>(pattern_.size() + other.size() - 2 * common);
}

std::size_t TextPattern::LongestCommonSubsequence(const std::wstring& other) const {
    std::uint64_t row = ~std::uint64_t{0};
    for (const wchar_t unit : other) {
        const std::uint64_t matched = row & firstRun_.Of(unit);
        row = (row + matched) | (row - matched);
    }
    return ZerosBelow(pattern_.size(), row);
}

// Processes the pattern in runs of 64, each with the carries of the previous run at each unit of the other text.
std::size_t TextPattern::LongestCommonSubsequenceInRuns(const std::wstring& other) const {
    std::vector<bool> carries(other.size(), false);
    std::size_t common = 0;
    for (std::size_t begin = 0; begin < pattern_.size(); begin += UnitPositions::capacity) {
        const std::size_t count = std::min(pattern_.size() - begin, UnitPositions::capacity);
        UnitPositions run;
        run.Fill(pattern_.data() + begin, count);
        std::uint64_t row = ~std::uint64_t{0};
        for (std::size_t column = 0; column < other.size(); ++column) {
            bool carry = carries[column];
            row = NextRow(row, run.Of(other[column]), carry);
            carries[column] = carry;
        }
        common += ZerosBelow(count, row);
    }
    return common;
}

double TextDistance(const std::wstring& first, const std::wstring& second) {
    return TextPattern(first).DistanceTo(second);
}
