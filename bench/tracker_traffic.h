/// Readings of standing vehicles for the tracker.
#pragma once

#include <cstdint>
#include <string>

#include "tracker/licence_plate.h"

namespace bench {

/// Returns a reading in a 1920 x 1080 frame. Vehicles have numbers below 100, and stand so far apart that the tracker
/// does not confuse them by place.
LicencePlatePtr ReadingOf(int vehicle, const std::wstring& text, std::uint64_t time);

/// Returns one of a vehicle's texts, which differ in one or two characters. Vehicles have no characters in common, so
/// that the tracker does not confuse them by text.
std::wstring TextOf(int vehicle, int number);

}  // namespace bench
