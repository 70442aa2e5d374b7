/// A road's traffic for as long as is asked, and what becomes of the memory.
#pragma once

#include "bench/frame_path/channel.h"

namespace frame_path {

struct SoakOptions {
    int minutes;   ///< of the traffic; it is played as fast as possible
    int channels;  ///< one thread each
};

/// By how much the most that is used in the second half may exceed the most of the first half.
inline constexpr double growthBoundMebibytes = 1.0;

/// Prints a line of JSON for each minute, and one at the end. Answers whether the memory stayed within the bound.
bool Soak(Library& library, const SoakOptions& options);

}  // namespace frame_path
