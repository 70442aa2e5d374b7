/// What each file of the one program registers.
#pragma once

namespace bench {

/// LAYOUT/WIDTHxHEIGHT/hot|cold/WHO. Throws std::exception when a baseline cannot be compared.
void RegisterConversions();

/// text-distance/KIND/WHO; an item is one pair of texts.
void RegisterTextDistances();

/// tracker/tracks:N/texts:N; an iteration is one frame.
void RegisterTracker();

}  // namespace bench
