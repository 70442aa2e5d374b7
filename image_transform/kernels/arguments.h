/// The argument checks that every kernel shares. Everything has internal linkage, for the reason in block_loop.h.
#pragma once

#include <cstdint>

#include "image_transform/kernels/kernel.h"

namespace image_transform::kernels {
namespace {

[[maybe_unused]] inline bool HasAllPlanes(const I420Planes& source) {
    return source.y != nullptr && source.u != nullptr && source.v != nullptr;
}

[[maybe_unused]] inline bool HasAllPlanes(const BgrPlanes& target) {
    return target.blue != nullptr && target.green != nullptr && target.red != nullptr;
}

[[maybe_unused]] inline int GreyStatusOf(std::int32_t width, std::int32_t height, bool hasAllPlanes) {
    if (!hasAllPlanes) {
        return Status::NullPlane;
    }
    return width < 1 || height < 1 ? Status::BadSize : Status::Ok;
}

[[maybe_unused]] inline int StatusOf(std::int32_t width, std::int32_t height, bool hasAllPlanes) {
    const int status = GreyStatusOf(width, height, hasAllPlanes);
    return status == Status::Ok && (width % 2 != 0 || height % 2 != 0) ? Status::OddSize : status;
}

/// True when there are pixels to convert: with an odd size, the even part is converted.
[[maybe_unused]] inline bool HasEvenPart(int status) {
    return status == Status::Ok || status == Status::OddSize;
}

}  // namespace
}  // namespace image_transform::kernels
