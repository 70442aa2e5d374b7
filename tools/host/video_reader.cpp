#include "tools/host/video_reader.h"

#include <array>
#include <cstring>

#include "tools/host/ffmpeg_reader.h"
#include "tools/host/reconnecting_reader.h"
#include "tools/host/system.h"
#include "tools/host/y4m_reader.h"

namespace plate_host {
namespace {

bool HasY4mName(const std::string& address) {
    constexpr std::string_view ending = ".y4m";
    return address.size() >= ending.size() && address.ends_with(ending) && address.find("://") == std::string::npos;
}

// Only a regular file can be read again from its start.
bool BeginsAsY4m(const std::string& address) {
    if (!IsRegularFile(address)) {
        return false;
    }
    const std::unique_ptr<ByteSource> source = OpenByteSource(address);
    std::array<char, y4mMagic.size()> start{};
    std::size_t have = 0;
    while (have < start.size()) {
        const std::size_t count = source->Read(start.data() + have, start.size() - have);
        if (count == 0) {
            return false;
        }
        have += count;
    }
    return std::string_view(start.data(), start.size()) == y4mMagic;
}

void CopyPlane(std::uint8_t* target, const PlaneView& plane, std::uint32_t width, std::uint32_t height) {
    for (std::uint32_t row = 0; row < height; ++row) {
        std::memcpy(target + std::size_t{row} * width, plane.first + static_cast<std::ptrdiff_t>(row) * plane.stride,
                    width);
    }
}

}  // namespace

std::unique_ptr<VideoReader> OpenVideo(const std::string& address, const Reconnection& reconnection) {
    if (address == "-" || HasY4mName(address) || BeginsAsY4m(address)) {
        return std::make_unique<Y4mReader>(OpenByteSource(address), address == "-" ? "standard input" : address);
    }
    if (reconnection.isWanted && address.find("://") != std::string::npos && !address.starts_with("file:")) {
        return std::make_unique<ReconnectingReader>(address, reconnection.report);
    }
    return OpenFfmpegVideo(address);
}

const char* VideoSupport() {
    return SupportedFormats();
}

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
