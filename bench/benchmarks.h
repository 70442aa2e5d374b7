/// Functions that register the benchmarks of each file.
#pragma once

namespace bench {

/// LAYOUT/WIDTHxHEIGHT/hot|cold/BEYOND/NAME, where the source begins BEYOND bytes after the beginning of a page. Throws
/// std::exception if a baseline cannot be compared.
void RegisterConversions();

/// text-distance/KIND/NAME; an item is one pair of texts.
void RegisterTextDistances();

/// tracker/tracks:N/texts:N; an iteration is one frame.
void RegisterTracker();

}  // namespace bench
