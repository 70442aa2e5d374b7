/// Cuts an event's plate and its surroundings out of a frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "tools/recording/recording.h"

namespace report {

/// A frame without padding: 8-bit planar 4:2:0, or only luminance, which `size` distinguishes. Width and height are
/// even.
struct FrameView {
    const std::uint8_t* data = nullptr;
    std::size_t size = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
};

/// In pixels of the frame; right and bottom are outside.
struct PlateBox {
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t right = 0;
    std::int32_t bottom = 0;

    friend bool operator==(const PlateBox&, const PlateBox&) = default;
};

/// Encodes a rectangle around the plate, about three plates wide and not beyond the frame, as JPEG of at most 360
/// pixels' width. Returns nothing if the plate is outside the frame or the frame has another layout. Any thread.
std::optional<recording::Crop> MakeCrop(const FrameView& frame, const PlateBox& plate);

}  // namespace report
