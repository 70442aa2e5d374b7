/// A reader that follows a command in the picture, so that a test controls the server from the engine's side and sees
/// there what the reader received.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "reference/reader/frame_reader.h"

namespace scripted_reader {

/// The picture's first byte; its second one is the argument.
enum Command : std::uint8_t {
    Describe,     ///< returns DescriptionOf the picture
    Count,        ///< returns that many readings: Numbered(0), Numbered(1), ...
    Sleep,        ///< waits that many times 10 ms, then as Describe
    Throw,        ///< throws a std::exception, or for an odd argument an int
    Crash,        ///< ends the process by a signal
    ReturnMixed,  ///< returns MixedReadings
};

/// Returns two readings whose texts and corners encode the picture's checksum and size, the region and the range.
std::vector<plate_reading::Reading> DescriptionOf(const plate_reading::Picture& picture,
                                                  const std::optional<plate_reading::Region>& region,
                                                  const std::optional<plate_reading::WidthRange>& widths);

plate_reading::Reading Numbered(int number);

/// Valid and invalid readings.
std::vector<plate_reading::Reading> MixedReadings();

std::unique_ptr<plate_reading::FrameReader> Make();

}  // namespace scripted_reader
