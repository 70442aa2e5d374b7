/// Random numbers that depend only on the seed, on every system.
#pragma once

#include <cstdint>

namespace road_clip {

/// SplitMix64.
class Random {
  public:
    explicit Random(std::uint64_t seed) : state_(seed) {}

    std::uint64_t Next() {
        state_ += 0x9e3779b97f4a7c15U;
        std::uint64_t mixed = state_;
        mixed = (mixed ^ (mixed >> 30U)) * 0xbf58476d1ce4e5b9U;
        mixed = (mixed ^ (mixed >> 27U)) * 0x94d049bb133111ebU;
        return mixed ^ (mixed >> 31U);
    }

    /// From 0 to `end` - 1. REQUIRES: `end` is positive.
    int Below(int end) { return static_cast<int>(Next() % static_cast<std::uint64_t>(end)); }

    /// From 0 to below 1.
    double Unit() { return static_cast<double>(Next() >> 11U) * 0x1.0p-53; }

    double Between(double low, double high) { return low + (high - low) * Unit(); }

  private:
    std::uint64_t state_;
};

}  // namespace road_clip
