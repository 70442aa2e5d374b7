/// Reads videos from any source as a sequence of pictures.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace plate_host {

/// One picture: planar 4:2:0 or only luminance, which `size` distinguishes. Width and height are even.
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
    /// Reads the next picture. Returns false at the end, where the video cannot be read further, and on a request to
    /// stop.
    virtual bool Read(Picture& picture) = 0;
    /// Describes the damage found in the video so far; empty for none.
    virtual std::string Damage() const = 0;
    /// An estimate of the number of pictures, if there is one.
    virtual std::optional<std::uint64_t> PictureCount() const = 0;
};

/// Opens a file, an address, or a Y4M stream on standard input for "-". Throws Failure.
std::unique_ptr<VideoReader> OpenVideo(const std::string& address);

/// Describes the videos that this program can open, for --help and --version.
const char* VideoSupport();

/// Allocates a picture of an even size, with or without colour planes.
Picture MakePicture(std::uint32_t width, std::uint32_t height, bool colour);

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
