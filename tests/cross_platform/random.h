/// Random numbers that are the same on every system, which the standard library's distributions do not guarantee.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <random>

namespace transcript {

/// A draw for an argument of a call must be a separate statement, because the evaluation order of arguments is
/// unspecified.
class Random {
  public:
    explicit Random(std::uint64_t seed) : engine_(seed) {}

    std::uint64_t Number() { return engine_(); }

    /// Below `limit`, which is not 0.
    std::uint64_t Below(std::uint64_t limit) { return engine_() % limit; }

    std::int32_t Between(std::int32_t lowest, std::int32_t highest) {
        const auto width = static_cast<std::uint64_t>(std::int64_t{highest} - lowest + 1);
        return static_cast<std::int32_t>(lowest + static_cast<std::int64_t>(Below(width)));
    }

    bool Chance(unsigned percent) { return Below(100) < percent; }

    template <class Value>
    Value Pick(std::initializer_list<Value> values) {
        return *std::next(values.begin(), static_cast<std::ptrdiff_t>(Below(values.size())));
    }

    std::uint8_t Byte() { return static_cast<std::uint8_t>(engine_() >> 56); }
    std::uint8_t Byte(unsigned lowest, unsigned highest) {
        return static_cast<std::uint8_t>(lowest + Below(highest - lowest + 1));
    }

  private:
    std::mt19937_64 engine_;
};

}  // namespace transcript
