/// The calls that the calling program makes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "engine/engine_records.h"

namespace recording_engine_test {

/// A program that calls until it is killed prints a line after so many calls of each thread.
inline constexpr int callsBeforeOutput = 20;

inline std::uint32_t WidthOf(int call) {
    return 64 + static_cast<std::uint32_t>(call) % 8;
}

inline std::uint32_t HeightOf(int thread) {
    return 48 + static_cast<std::uint32_t>(thread);
}

/// The number of bytes after each row.
inline std::uint32_t PaddingOf(int call) {
    return call % 3 == 1 ? 5 : 0;
}

inline bool HasPixels(int call) {
    return call % 7 != 6;
}

inline std::uint8_t PixelByte(int thread, int call, std::size_t index) {
    return static_cast<std::uint8_t>(index * 7 + static_cast<std::size_t>(thread * 31 + call * 3));
}

inline std::optional<tagRECT> RegionOf(int thread, int call) {
    return call % 2 == 0 ? std::nullopt : std::optional(tagRECT{-1, call, 30 + thread, 40});
}

/// A call with this range comes before the recognition.
inline bool HasRange(int call) {
    return call % 4 == 0;
}

inline int SmallestWidth(int thread) {
    return 10 + thread;
}

inline int LargestWidth(int call) {
    return 100 + call;
}

}  // namespace recording_engine_test
