/// A reader that does what the picture tells it, so that a test chooses on the engine's side what the server does, and
/// sees there what the reader was given.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "reference/reader/frame_reader.h"

namespace scripted_reader {

/// The picture's first byte; its second one is the argument.
enum Command : std::uint8_t {
    Describe,  ///< returns what DescriptionOf says
    Count,     ///< returns that many readings: Numbered(0), Numbered(1), ...
    Sleep,     ///< waits that many times 10 ms, then as Describe
    Throw,     ///< throws, for an odd argument something that is no std::exception
    Crash,     ///< ends the process by a signal
    BeOdd,     ///< returns OddReadings
};

/// Two readings: texts and corners hold the picture's checksum and size, region and range.
std::vector<plate_reading::Reading> DescriptionOf(const plate_reading::Picture& picture,
                                                  const std::optional<plate_reading::Region>& region,
                                                  const std::optional<plate_reading::WidthRange>& widths);

plate_reading::Reading Numbered(int number);

/// What a reader should not answer, and between it what it may.
std::vector<plate_reading::Reading> OddReadings();

std::unique_ptr<plate_reading::FrameReader> Make();

}  // namespace scripted_reader
