#include "tools/host/picture.h"

#include <cstring>

namespace plate_host {
namespace {

void CopyPlane(std::uint8_t* target, const PlaneView& plane, std::uint32_t width, std::uint32_t height) {
    for (std::uint32_t row = 0; row < height; ++row) {
        std::memcpy(target + std::size_t{row} * width, plane.first + static_cast<std::ptrdiff_t>(row) * plane.stride,
                    width);
    }
}

}  // namespace

Picture MakePicture(std::uint32_t width, std::uint32_t height, bool colour) {
    Picture picture;
    picture.width = width;
    picture.height = height;
    picture.size = width * height + (colour ? width / 2 * (height / 2) * 2 : 0);
    picture.bytes = std::make_unique_for_overwrite<std::uint8_t[]>(picture.size);
    return picture;
}

Picture MakeEmptyScene(std::uint32_t width, std::uint32_t height, bool colour) {
    Picture picture = MakePicture(width, height, colour);
    std::memset(picture.bytes.get(), 128, picture.size);
    return picture;
}

Picture CopyPicture(const Picture& picture) {
    Picture copy;
    copy.size = picture.size;
    copy.width = picture.width;
    copy.height = picture.height;
    copy.timeMs = picture.timeMs;
    copy.isAfterVideo = picture.isAfterVideo;
    copy.bytes = std::make_unique_for_overwrite<std::uint8_t[]>(copy.size);
    std::memcpy(copy.bytes.get(), picture.bytes.get(), copy.size);
    return copy;
}

void FillPlanes(Picture& picture, const PlaneView* planes) {
    std::uint8_t* target = picture.bytes.get();
    const std::uint32_t luminance = picture.width * picture.height;
    CopyPlane(target, planes[0], picture.width, picture.height);
    if (picture.size > luminance) {
        const std::uint32_t chroma = luminance / 4;
        CopyPlane(target + luminance, planes[1], picture.width / 2, picture.height / 2);
        CopyPlane(target + luminance + chroma, planes[2], picture.width / 2, picture.height / 2);
    }
}

}  // namespace plate_host
