/// The events of a recording, with what the report shows of them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/recording/recording.h"
#include "tools/report/crop.h"

namespace report {

/// The middle of the plate's left edge in one frame.
struct TrackPlace {
    std::int64_t x = 0;
    std::int64_t y = 0;
};

struct PlateEvent {
    int channel = 0;
    std::string name;
    std::int64_t timeMs = 0;
    std::string text;
    std::string country;
    std::optional<std::int64_t> confidence;
    std::optional<PlateBox> plate;
    std::vector<TrackPlace> track;
    std::int64_t firstMs = 0;  ///< of the track's times; the event's own time without any
    std::int64_t lastMs = 0;
    std::uint32_t frameWidth = 0;
    std::uint32_t frameHeight = 0;
    const recording::Crop* crop = nullptr;  ///< of the recording; null without
};

/// In the order of the recording, which must outlive the result. What an event lacks, or has in another type, is left
/// out.
std::vector<PlateEvent> PlateEventsOf(const recording::Recording& recording);

}  // namespace report
