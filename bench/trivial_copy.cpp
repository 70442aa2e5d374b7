#include "bench/trivial_copy.h"

#include <cstring>

namespace bench {

namespace {

constexpr std::int32_t blockSize = 64;  // pixels; a copy of constant size is a load and a store

// Writes for each block its luma twice, then its U and V samples.
void CopyRow(const std::uint8_t* y, const std::uint8_t* u, const std::uint8_t* v, std::uint8_t* target,
             std::int32_t width) {
    constexpr std::int32_t chromaSize = blockSize / 2;
    for (std::int32_t x = 0; x < width; x += blockSize) {
        std::memcpy(target, y + x, blockSize);
        std::memcpy(target + blockSize, y + x, blockSize);
        std::memcpy(target + 2 * blockSize, u + x / 2, chromaSize);
        std::memcpy(target + 2 * blockSize + chromaSize, v + x / 2, chromaSize);
        target += 3 * blockSize;
    }
}

}  // namespace

void TrivialCopy(const image_transform::kernels::I420Planes& source, std::uint8_t* target, std::int32_t width,
                 std::int32_t height) {
    for (std::int32_t row = 0; row < height; ++row) {
        CopyRow(source.y + row * source.yStride, source.u + row / 2 * source.uStride,
                source.v + row / 2 * source.vStride, target + std::ptrdiff_t{3} * row * width, width);
    }
}

}  // namespace bench
