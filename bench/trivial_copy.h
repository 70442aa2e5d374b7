/// The bound of every conversion: its traffic without its arithmetic.
#pragma once

#include <cstdint>

#include "image_transform/kernels/kernel.h"

namespace bench {

/// Reads every byte of the three planes as often as a conversion row by row does, and writes 3 bytes a pixel in order.
/// REQUIRES: a width that is a multiple of 64, an even height, and planes without padding.
void TrivialCopy(const image_transform::kernels::I420Planes& source, std::uint8_t* target, std::int32_t width,
                 std::int32_t height);

}  // namespace bench
