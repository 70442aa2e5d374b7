#include "image_transform/image_data.h"

#include <new>
#include <stdexcept>

namespace image_transform {

namespace {

// A cache line, so that no vector store crosses two lines.
constexpr std::align_val_t alignment{64};

std::uint32_t NonZero(std::uint32_t size) {
    if (size == 0) {
        throw std::runtime_error("Zero image size is not acceptable");
    }
    return size;
}

}  // namespace

ImageData::ImageData(std::uint32_t imageWidth, std::uint32_t imageHeight, std::uint32_t imageSize, std::uint8_t* pixels)
    : width(NonZero(imageWidth)), height(NonZero(imageHeight)), size(NonZero(imageSize)), data(pixels) {}

ImageData::ImageData(std::uint32_t imageWidth, std::uint32_t imageHeight, std::uint32_t imageSize)
    : ImageData(imageWidth, imageHeight, imageSize, nullptr) {
    storage = boost::shared_ptr<std::uint8_t>(new (alignment) std::uint8_t[size](),
                                              [](std::uint8_t* bytes) { operator delete[](bytes, alignment); });
    data = storage.get();
}

}  // namespace image_transform
