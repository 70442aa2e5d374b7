/// Videos, whatever they come from, as pictures in order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace plate_host {

/// One picture: planar 4:2:0, or luminance alone, told apart by the size. Width and height are even.
struct Picture {
    std::unique_ptr<std::uint8_t[]> bytes;
    std::uint32_t size = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint64_t timeMs = 0;  ///< presentation time, from the start of the video
};

/// Used by one thread.
class VideoReader {
  public:
    virtual ~VideoReader() = default;
    /// Reads the next picture. False at the end, where the video is damaged beyond, and when the run is asked to stop.
    virtual bool Read(Picture& picture) = 0;
    /// What is wrong with the video, as far as it has been read; empty for nothing.
    virtual std::string Damage() const = 0;
    /// The number of pictures that the video seems to have.
    virtual std::optional<std::uint64_t> PictureCount() const = 0;
};

/// Opens a file, an address, or a Y4M stream on standard input for "-". Throws Failure.
std::unique_ptr<VideoReader> OpenVideo(const std::string& address);

/// The videos that this program can open, for the help.
const char* VideoSupport();

/// An empty picture of an even size, with or without its colour planes.
Picture MakePicture(std::uint32_t width, std::uint32_t height, bool colour);

/// Copies a picture whole.
Picture CopyPicture(const Picture& picture);

/// One plane of a decoded picture.
struct PlaneView {
    const std::uint8_t* first;
    std::ptrdiff_t stride;  ///< bytes; may be negative
};

/// Fills the picture's planes, one or three, from the upper left part of the given ones.
void FillPlanes(Picture& picture, const PlaneView* planes);

}  // namespace plate_host
