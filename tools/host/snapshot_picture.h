/// A frame with what was found in it drawn in, as a file. Programs without a drawing library cannot do that.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/host/video_reader.h"

namespace plate_host {

/// In pixels; right and bottom are outside.
struct SnapshotBox {
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t right = 0;
    std::int32_t bottom = 0;
};

struct SnapshotPoint {
    std::int32_t x = 0;
    std::int32_t y = 0;
};

/// What is drawn for one target of an event.
struct SnapshotTarget {
    std::string label;                 ///< in UTF-8; empty for none
    std::optional<SnapshotBox> plate;  ///< framed from outside; nothing is drawn over it
    std::vector<SnapshotPoint> track;  ///< joined by a line, in order
};

/// Throws Failure where the program cannot draw.
void RequireSnapshotSupport();

/// The bytes of a PNG file in the size of the picture. Called by one thread at a time. Throws Failure.
std::string DrawSnapshot(const Picture& picture, const std::vector<SnapshotTarget>& targets);

}  // namespace plate_host
