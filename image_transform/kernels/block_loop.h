/// The loops of the vector kernels over rows and blocks; each kernel's file adds the conversion of one block.
///
/// Everything here has internal linkage: each file is compiled for another instruction set, and the linker could keep
/// the copy of a shared function that this processor cannot run. For the same reason standard library functions are not
/// used.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "image_transform/kernels/arguments.h"
#include "image_transform/kernels/kernel.h"

namespace image_transform::kernels {
namespace {

// Inlining and unrolling are forced because the compiler keeps a block in registers only within one function.
#if defined(_MSC_VER) && !defined(__clang__)
#define KERNEL_INLINE __forceinline
#define KERNEL_INLINE_LAMBDA [[msvc::forceinline]]
#define KERNEL_UNROLL(times)
#else
#define KERNEL_INLINE inline __attribute__((always_inline))
#define KERNEL_INLINE_LAMBDA __attribute__((always_inline))
#if defined(__clang__)
#define KERNEL_UNROLL(times) _Pragma("clang loop unroll(full)")
#else
#define KERNEL_PRAGMA(text) _Pragma(#text)
#define KERNEL_UNROLL(times) KERNEL_PRAGMA(GCC unroll times)
#endif
#endif

// The formula of kernel.h in 16-bit arithmetic. For red and blue the multiples of 65536 are split off:
//   74711 v = 65536 v + 9175 v,   133169 u = 131072 u + 2097 u.
// The offset to Y depends only on the chroma: (65536 Y + k) >> 16 = Y + (k >> 16). Clamped to -255..255 and split into
// a byte to add and a byte to subtract, one of them zero, it is applied with a saturating addition and subtraction.
constexpr std::int16_t redFromVFraction = 9175;
constexpr std::int16_t blueFromUFraction = 2097;

// The offset of green is ((27460 v - 25821 u) >> 16) - v. The sum is computed in two halves that each fit 16 bits:
//   27460 V - 25821 U - 209792 = 256 (107 V - 101 U) + (68 V + 35 U) - 209792.
// The constant is 256 x -820 + 128. Of the -820, -52 is added to the lower half; the rest, 256 x -3, is added to the
// 128 of v = V - 128 once the values are bytes: 125, modulo 256.
constexpr std::int16_t greenUpper = static_cast<std::int16_t>((-101 << 8) | 107);  // a byte for V below one for U
constexpr std::int16_t greenLower = static_cast<std::int16_t>((35 << 8) | 68);
constexpr std::int16_t greenLowerBias = 128 - 52 * 256;
constexpr std::int8_t greenByteBias = 125;

// The prefetch distance of luma, in bytes; chroma needs no prefetch. Measured with frames that were in no cache; twice
// or half the distance makes little difference.
constexpr std::ptrdiff_t lumaPrefetchDistance = 4096;
constexpr std::ptrdiff_t cacheLine = 64;

// An output larger than this, in bytes, bypasses the caches: it would be evicted before it is read.
constexpr std::ptrdiff_t largestCachedOutput = std::ptrdiff_t{16} << 20;

// The address may be past the end of the frame: a prefetch of an invalid address has no effect.
KERNEL_INLINE void Prefetch(const std::uint8_t* luma, std::ptrdiff_t from, std::ptrdiff_t bytes) {
    const std::uintptr_t first = reinterpret_cast<std::uintptr_t>(luma) + static_cast<std::uintptr_t>(from);
    for (std::ptrdiff_t line = 0; line < bytes; line += cacheLine) {
        _mm_prefetch(reinterpret_cast<const char*>(first + static_cast<std::uintptr_t>(line)), _MM_HINT_T0);
    }
}

// The preparation of a next block where there is none.
struct NoPreparation {
    KERNEL_INLINE void Step(int) {}
};

// Calls `prefetch(column)` and then `emit(offsets, column, preparation)` for each block of a row or a pair of rows. The
// last block ends with the row and may overlap the previous one.
//
// A block type with preparation steps has registers for two blocks: emit runs the next block's steps between its own,
// so that the next offsets are ready in time. The processor does not reorder that far by itself.
//
// REQUIRES: width is even and at least Block::pixels.
template <class Block, class Emit, class Prefetcher>
KERNEL_INLINE void ForEachBlock(const Block& block, const std::uint8_t* u, const std::uint8_t* v, std::ptrdiff_t width,
                                Emit emit, Prefetcher prefetch) {
    const std::ptrdiff_t last = width - Block::pixels;
    NoPreparation nothing;
    std::ptrdiff_t column = 0;
    if constexpr (Block::preparationSteps > 0) {
        typename Block::Preparation first(block, u, v);
        for (int step = 0; step < Block::preparationSteps; ++step) {
            first.Step(step);
        }
        typename Block::Offsets offsets = first.Result();
        while (column != last) {
            const std::ptrdiff_t next = column + Block::pixels < last ? column + Block::pixels : last;
            prefetch(column);
            typename Block::Preparation following(block, u + next / 2, v + next / 2);
            emit(offsets, column, following);
            offsets = following.Result();
            column = next;
        }
        emit(offsets, last, nothing);
    } else {
        for (; column < last; column += Block::pixels) {
            prefetch(column);
            emit(typename Block::Preparation(block, u + column / 2, v + column / 2).Result(), column, nothing);
        }
        emit(typename Block::Preparation(block, u + last / 2, v + last / 2).Result(), last, nothing);
    }
}

// Two rows at a time share the work on their chroma. Prefetches are in address order, because the hardware prefetcher
// does not recognise two alternating rows as a stream and reads from memory are then half as fast.
template <class Block, bool nonTemporal>
void ConvertRowPairs(const I420Planes& source, std::uint8_t* bgr, std::ptrdiff_t stride, std::ptrdiff_t width,
                     std::ptrdiff_t height) {
    const Block block;
    for (std::ptrdiff_t row = 0; row < height; row += 2) {
        const std::uint8_t* y = source.y + row * source.yStride;
        std::uint8_t* target = bgr + row * stride;
        ForEachBlock(
            block, source.u + row / 2 * source.uStride, source.v + row / 2 * source.vStride, width,
            [&](const auto& offsets, std::ptrdiff_t column, auto& following) KERNEL_INLINE_LAMBDA {
                block.template StoreInterleaved<nonTemporal>(offsets, y + column, source.yStride, target + 3 * column,
                                                             stride, following);
            },
            [&](std::ptrdiff_t column) KERNEL_INLINE_LAMBDA {
                Prefetch(y, lumaPrefetchDistance + 2 * column, std::ptrdiff_t{2} * Block::pixels);
            });
    }
}

template <class Block>
bool CanStream(const std::uint8_t* bgr, std::ptrdiff_t stride, std::ptrdiff_t width) {
    const std::ptrdiff_t lastBlock = 3 * (width - Block::pixels);
    return (reinterpret_cast<std::intptr_t>(bgr) | stride | lastBlock) % Block::streamAlignment == 0;
}

template <class Block, const Kernel& narrower>
int VectorToBgr24(const I420Planes& source, std::uint8_t* bgr, std::ptrdiff_t stride, std::int32_t width,
                  std::int32_t height) {
    const int status = StatusOf(width, height, HasAllPlanes(source) && bgr != nullptr);
    const std::ptrdiff_t evenWidth = width / 2 * 2;
    const std::ptrdiff_t evenHeight = height / 2 * 2;
    if (!HasEvenPart(status) || evenWidth < Block::pixels) {
        return HasEvenPart(status) ? narrower.toBgr24(source, bgr, stride, width, height) : status;
    }
    if (3 * evenWidth * evenHeight > largestCachedOutput && CanStream<Block>(bgr, stride, evenWidth)) {
        ConvertRowPairs<Block, true>(source, bgr, stride, evenWidth, evenHeight);
        _mm_sfence();
    } else {
        ConvertRowPairs<Block, false>(source, bgr, stride, evenWidth, evenHeight);
    }
    return status;
}

template <class Block, const Kernel& narrower>
int VectorToBgrPlanar(const I420Planes& source, const BgrPlanes& target, std::int32_t width, std::int32_t height) {
    const int status = StatusOf(width, height, HasAllPlanes(source) && HasAllPlanes(target));
    const std::ptrdiff_t evenWidth = width / 2 * 2;
    const std::ptrdiff_t evenHeight = height / 2 * 2;
    if (!HasEvenPart(status) || evenWidth < Block::pixels) {
        return HasEvenPart(status) ? narrower.toBgrPlanar(source, target, width, height) : status;
    }
    const Block block;
    for (std::ptrdiff_t row = 0; row < evenHeight; row += 2) {
        const std::uint8_t* y = source.y + row * source.yStride;
        ForEachBlock(
            block, source.u + row / 2 * source.uStride, source.v + row / 2 * source.vStride, evenWidth,
            [&](const auto& offsets, std::ptrdiff_t column, auto& following) KERNEL_INLINE_LAMBDA {
                const std::ptrdiff_t offset = row * target.stride + column;
                const BgrPlanes at{target.blue + offset, target.green + offset, target.red + offset, target.stride};
                block.StorePlanar(offsets, y + column, source.yStride, at, following);
            },
            [&](std::ptrdiff_t column) KERNEL_INLINE_LAMBDA {
                Prefetch(y, lumaPrefetchDistance + 2 * column, std::ptrdiff_t{2} * Block::pixels);
            });
    }
    return status;
}

template <class Block, const Kernel& narrower>
int VectorGreyToBgr24(const std::uint8_t* grey, std::ptrdiff_t greyStride, std::uint8_t* bgr, std::ptrdiff_t stride,
                      std::int32_t width, std::int32_t height) {
    const int status = GreyStatusOf(width, height, grey != nullptr && bgr != nullptr);
    if (status != Status::Ok || width < Block::pixels) {
        return status == Status::Ok ? narrower.greyToBgr24(grey, greyStride, bgr, stride, width, height) : status;
    }
    const Block block;
    for (std::ptrdiff_t row = 0; row < height; ++row) {
        const std::uint8_t* source = grey + row * greyStride;
        std::uint8_t* target = bgr + row * stride;
        const std::ptrdiff_t last = width - Block::pixels;
        for (std::ptrdiff_t column = 0; column < last; column += Block::pixels) {
            block.StoreGreyAsBgr(source + column, target + 3 * column);
        }
        block.StoreGreyAsBgr(source + last, target + 3 * last);
    }
    return status;
}

}  // namespace
}  // namespace image_transform::kernels
