/// The bound of every conversion: its memory traffic without its arithmetic.
#pragma once

#include <cstdint>

#include "image_transform/kernels/kernel.h"

namespace bench {

/// Reads every byte of the planes as often as a row-by-row conversion, and writes 3 bytes per pixel in order.
/// REQUIRES: a width that is a multiple of 64, an even height, and planes without padding.
void TrivialCopy(const image_transform::kernels::I420Planes& source, std::uint8_t* target, std::int32_t width,
                 std::int32_t height);

}  // namespace bench
