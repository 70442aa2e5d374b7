/// Recordings that no run has made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/recording/recording.h"
#include "tools/report/crop.h"

namespace report_test {

/// A frame of that size in one colour, planar 4:2:0.
std::vector<std::uint8_t> Frame420(std::uint32_t width, std::uint32_t height, std::uint8_t luminance,
                                   std::uint8_t blueDifference, std::uint8_t redDifference);

/// An event as plate-host prints it, of a plate 100 pixels wide with a track of two readings, 200 ms apart.
recording::Event PlateEvent(int channel, std::int64_t timeMs, const std::string& text);

/// A frame of 640 x 480 with one engine call of 8 ms.
recording::Frame PlainFrame(int channel, std::uint64_t number, std::uint64_t timeMs);

/// A run of two channels with that many events, one a second, each with a picture.
recording::Recording RunWith(std::size_t events);

}  // namespace report_test
