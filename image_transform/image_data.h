/// An image, and a step that makes one image of another.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>

namespace image_transform {

/// A record that is copied by value and shares its pixels.
struct ImageData {
    ImageData() = default;

    /// A view over memory that somebody else owns. Throws std::exception with "Zero image size is not acceptable" when
    /// width, height or size is 0.
    ImageData(std::uint32_t imageWidth, std::uint32_t imageHeight, std::uint32_t imageSize, std::uint8_t* pixels);

    /// An owner of `imageSize` bytes, all zero, the first at a multiple of 64. Throws as the view does, before anything
    /// is allocated.
    ImageData(std::uint32_t imageWidth, std::uint32_t imageHeight, std::uint32_t imageSize);

    std::uint32_t width = 0;   ///< pixels
    std::uint32_t height = 0;  ///< rows
    std::uint32_t size = 0;    ///< bytes
    std::uint8_t* data = nullptr;
    boost::shared_ptr<std::uint8_t> storage;  ///< an array of bytes; empty for a view
};

/// One step. Used by one thread at a time.
class IImageTransform {
  public:
    /// Makes `out` of `in`; both may be the same record. Throws std::exception.
    virtual void Transform(const ImageData& in, ImageData& out) = 0;
    virtual ~IImageTransform() = default;
};

}  // namespace image_transform
