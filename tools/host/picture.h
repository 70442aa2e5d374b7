/// The pictures of a video.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace plate_host {

/// One picture: planar 4:2:0 or only luminance, which `size` distinguishes. Width and height are even.
struct Picture {
    std::unique_ptr<std::uint8_t[]> bytes;
    std::uint32_t size = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint64_t timeMs = 0;   ///< presentation time, from the start of the video
    bool isAfterVideo = false;  ///< one of the empty scenes that follow the video
};

/// Allocates a picture of an even size, with or without colour planes.
Picture MakePicture(std::uint32_t width, std::uint32_t height, bool colour);

/// A grey picture of that size and layout, a scene without vehicles.
Picture MakeEmptyScene(std::uint32_t width, std::uint32_t height, bool colour);

/// Copies a picture with its bytes.
Picture CopyPicture(const Picture& picture);

/// One plane of a decoded picture.
struct PlaneView {
    const std::uint8_t* first;
    std::ptrdiff_t stride;  ///< bytes; may be negative
};

/// Fills the picture's one or three planes from the upper left part of the given ones.
void FillPlanes(Picture& picture, const PlaneView* planes);

}  // namespace plate_host
