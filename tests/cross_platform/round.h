/// One random session of the library, from loading to unloading.
#pragma once

#include <cstdint>
#include <string>

namespace transcript {

/// Throws std::exception when the round cannot be played.
std::string PlayRound(std::uint64_t seed);

}  // namespace transcript
