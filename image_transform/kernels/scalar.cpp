// The definition of the conversion: every other kernel is compared with these routines. Source: kernel.h.

#include <algorithm>

#include "image_transform/kernels/arguments.h"
#include "image_transform/kernels/kernel.h"

namespace image_transform::kernels {

namespace {

constexpr int fractionBits = 16;
constexpr std::int32_t redFromV = 74711;     // 1.140
constexpr std::int32_t greenFromV = -38076;  // 0.581
constexpr std::int32_t greenFromU = -25821;  // 0.394
constexpr std::int32_t blueFromU = 133169;   // 2.032

struct Bgr {
    std::uint8_t blue;
    std::uint8_t green;
    std::uint8_t red;
};

std::uint8_t Saturated(std::int32_t scaled) {
    return static_cast<std::uint8_t>(std::clamp(scaled >> fractionBits, 0, 255));
}

Bgr Converted(std::uint8_t luma, std::uint8_t chromaU, std::uint8_t chromaV) {
    const std::int32_t y = std::int32_t{luma} << fractionBits;
    const std::int32_t u = std::int32_t{chromaU} - 128;
    const std::int32_t v = std::int32_t{chromaV} - 128;
    return {Saturated(y + blueFromU * u), Saturated(y + greenFromV * v + greenFromU * u), Saturated(y + redFromV * v)};
}

// Converts the even part and calls `put(row, column, pixel)` for each pixel.
template <class Put>
void ConvertEvenPart(const I420Planes& source, std::int32_t width, std::int32_t height, Put put) {
    for (std::int32_t row = 0; row < height / 2 * 2; ++row) {
        const std::uint8_t* y = source.y + row * source.yStride;
        const std::uint8_t* u = source.u + row / 2 * source.uStride;
        const std::uint8_t* v = source.v + row / 2 * source.vStride;
        for (std::int32_t column = 0; column < width / 2 * 2; ++column) {
            put(row, column, Converted(y[column], u[column / 2], v[column / 2]));
        }
    }
}

int ToBgr24(const I420Planes& source, std::uint8_t* bgr, std::ptrdiff_t stride, std::int32_t width,
            std::int32_t height) {
    const int status = StatusOf(width, height, HasAllPlanes(source) && bgr != nullptr);
    if (HasEvenPart(status)) {
        ConvertEvenPart(source, width, height, [=](std::int32_t row, std::int32_t column, const Bgr& pixel) {
            std::uint8_t* target = bgr + row * stride + std::ptrdiff_t{3} * column;
            target[0] = pixel.blue;
            target[1] = pixel.green;
            target[2] = pixel.red;
        });
    }
    return status;
}

int ToBgrPlanar(const I420Planes& source, const BgrPlanes& target, std::int32_t width, std::int32_t height) {
    const int status = StatusOf(width, height, HasAllPlanes(source) && HasAllPlanes(target));
    if (HasEvenPart(status)) {
        ConvertEvenPart(source, width, height, [&](std::int32_t row, std::int32_t column, const Bgr& pixel) {
            const std::ptrdiff_t offset = row * target.stride + column;
            target.blue[offset] = pixel.blue;
            target.green[offset] = pixel.green;
            target.red[offset] = pixel.red;
        });
    }
    return status;
}

int GreyToBgr24Rows(const std::uint8_t* grey, std::ptrdiff_t greyStride, std::uint8_t* bgr, std::ptrdiff_t stride,
                    std::int32_t width, std::int32_t height) {
    const int status = GreyStatusOf(width, height, grey != nullptr && bgr != nullptr);
    if (status != Status::Ok) {
        return status;
    }
    for (std::int32_t row = 0; row < height; ++row) {
        const std::uint8_t* source = grey + row * greyStride;
        std::uint8_t* target = bgr + row * stride;
        for (std::int32_t column = 0; column < width; ++column, target += 3) {
            target[0] = target[1] = target[2] = source[column];
        }
    }
    return status;
}

bool AlwaysSupported() {
    return true;
}

}  // namespace

constinit const Kernel scalarKernel = {"scalar", AlwaysSupported, ToBgr24, ToBgrPlanar, GreyToBgr24Rows};

}  // namespace image_transform::kernels
