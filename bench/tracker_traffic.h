/// Readings of vehicles that stand, as the tracker takes them.
#pragma once

#include <cstdint>
#include <string>

#include "tracker/licence_plate.h"

namespace bench {

/// A reading of a 1920 x 1080 frame; its time is its own. Vehicles have numbers below 100, and stand so far apart that
/// none is taken for another by its place.
LicencePlatePtr ReadingOf(int vehicle, const std::wstring& text, std::uint64_t time);

/// One of a vehicle's texts, which differ in one character or two. Vehicles have no character in common, so that none
/// is taken for another by its text.
std::wstring TextOf(int vehicle, int number);

}  // namespace bench
