#include "image_transform/image_data.h"

#include <stdexcept>

namespace image_transform {

namespace {

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
    storage =
        boost::shared_ptr<std::uint8_t>(new std::uint8_t[size](), [](const std::uint8_t* bytes) { delete[] bytes; });
    data = storage.get();
}

}  // namespace image_transform
