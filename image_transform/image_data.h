/// An image, and the interface of a step that transforms one image into another.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>

namespace image_transform {

/// An image. Copies share the pixels.
struct ImageData {
    ImageData() = default;

    /// A view of memory that the caller owns and keeps valid. `imageSize` is in bytes. Throws std::exception with "Zero
    /// image size is not acceptable" when width, height or size is 0.
    ImageData(std::uint32_t imageWidth, std::uint32_t imageHeight, std::uint32_t imageSize, std::uint8_t* pixels);

    /// Allocates `imageSize` bytes, all zero and aligned to 64 bytes. Throws like the view constructor, before it
    /// allocates, and std::bad_alloc.
    ImageData(std::uint32_t imageWidth, std::uint32_t imageHeight, std::uint32_t imageSize);

    std::uint32_t width = 0;   ///< pixels
    std::uint32_t height = 0;  ///< rows
    std::uint32_t size = 0;    ///< bytes
    std::uint8_t* data = nullptr;
    boost::shared_ptr<std::uint8_t> storage;  ///< owns the bytes; empty for a view
};

/// A step of a transform chain. One thread at a time.
class IImageTransform {
  public:
    /// Transforms `in` into `out`, which may be the same object. Throws std::exception on failure.
    virtual void Transform(const ImageData& in, ImageData& out) = 0;
    virtual ~IImageTransform() = default;
};

}  // namespace image_transform
