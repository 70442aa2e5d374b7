/// Draws the plates of an event into its frame and encodes it as PNG. Needs a drawing library.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/host/picture.h"

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
    std::optional<SnapshotBox> plate;  ///< the border is drawn around it, nothing over it
    std::vector<SnapshotPoint> track;  ///< joined by a line, in order
};

/// Throws Failure when the program is built without a drawing library.
void RequireSnapshotSupport();

/// Returns a PNG file of the picture's size. Called by one thread at a time. Throws Failure.
std::string DrawSnapshot(const Picture& picture, const std::vector<SnapshotTarget>& targets);

}  // namespace plate_host
