/// The loops of the vector kernels over rows and blocks; each kernel's file adds the conversion of one block.
///
/// Everything here has internal linkage: each file is compiled for another instruction set, and the linker could keep
/// the copy of a shared function that this processor cannot run. For the same reason standard library functions are not
/// used.
#pragma once

#if defined(_MSC_VER) && !defined(__clang__)
#include <intrin.h>
#else
#include <x86intrin.h>
#endif

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

// The prefetch distances, in bytes. For frames of usual widths both are about as long before the use; twice or half
// makes little difference.
constexpr std::ptrdiff_t lumaPrefetchDistance = 3072;
constexpr std::ptrdiff_t chromaPrefetchDistance = 1024;
constexpr std::ptrdiff_t cacheLine = 64;

// The address may be past the end of the frame: a prefetch of an invalid address has no effect.
KERNEL_INLINE void Prefetch(const std::uint8_t* plane, std::ptrdiff_t from, std::ptrdiff_t bytes) {
    const std::uintptr_t first = reinterpret_cast<std::uintptr_t>(plane) + static_cast<std::uintptr_t>(from);
    for (std::ptrdiff_t line = 0; line < bytes; line += cacheLine) {
        _mm_prefetch(reinterpret_cast<const char*>(first + static_cast<std::uintptr_t>(line)), _MM_HINT_T0);
    }
}

// The source of a block: the first of its luma samples, in one row or in two that are `stride` bytes apart, and its
// chroma samples.
struct BlockSource {
    const std::uint8_t* y;
    std::ptrdiff_t stride;
    const std::uint8_t* u;
    const std::uint8_t* v;

    KERNEL_INLINE BlockSource At(std::ptrdiff_t column) const {
        return {y + column, stride, u + column / 2, v + column / 2};
    }
};

// The preparation of a next block where there is none.
struct NoPreparation {
    KERNEL_INLINE void Step(int) {}
};

// Calls `prefetch(column)` and then `emit(prepared, column, preparation)` for each block of one row or of two. The last
// block ends with the row and may overlap the previous one.
//
// A block type with preparation steps has registers for two blocks: emit runs the next block's steps between its own,
// so that the next offsets are ready in time. The processor does not reorder that far by itself.
//
// REQUIRES: width is even and at least Block::pixels.
template <class Block, int rows, class Emit, class Prefetcher>
KERNEL_INLINE void ForEachBlock(const Block& block, const BlockSource& source, std::ptrdiff_t width, Emit emit,
                                Prefetcher prefetch) {
    using Preparation = typename Block::template Preparation<rows>;
    const std::ptrdiff_t last = width - Block::pixels;
    NoPreparation nothing;
    std::ptrdiff_t column = 0;
    if constexpr (Block::preparationSteps > 0) {
        Preparation first(block, source);
        for (int step = 0; step < Block::preparationSteps; ++step) {
            first.Step(step);
        }
        auto prepared = first.Result();
        while (column != last) {
            const std::ptrdiff_t next = column + Block::pixels < last ? column + Block::pixels : last;
            prefetch(column);
            Preparation following(block, source.At(next));
            emit(prepared, column, following);
            prepared = following.Result();
            column = next;
        }
        prefetch(last);
        emit(prepared, last, nothing);
    } else {
        for (; column < last; column += Block::pixels) {
            prefetch(column);
            emit(Preparation(block, source.At(column)).Result(), column, nothing);
        }
        prefetch(last);
        emit(Preparation(block, source.At(last)).Result(), last, nothing);
    }
}

// Where blocks are written: to interleaved rows, or to planes.
template <bool nonTemporal>
struct InterleavedTarget {
    template <int rows, class Block, class Following>
    KERNEL_INLINE void Store(const Block& block, const typename Block::template Prepared<rows>& prepared,
                             const BlockSource& source, std::ptrdiff_t row, std::ptrdiff_t column,
                             Following& following) const {
        block.template StoreInterleaved<rows, nonTemporal>(prepared, source, bgr + row * stride + 3 * column, stride,
                                                           following);
    }

    std::uint8_t* bgr;
    std::ptrdiff_t stride;
};

template <bool nonTemporal>
struct PlanarTarget {
    template <int rows, class Block, class Following>
    KERNEL_INLINE void Store(const Block& block, const typename Block::template Prepared<rows>& prepared,
                             const BlockSource& source, std::ptrdiff_t row, std::ptrdiff_t column,
                             Following& following) const {
        const std::ptrdiff_t offset = row * planes.stride + column;
        block.template StorePlanar<rows, nonTemporal>(
            prepared, source, {planes.blue + offset, planes.green + offset, planes.red + offset, planes.stride},
            following);
    }

    BgrPlanes planes;
};

// Converts the rows `from` to `to`, one or two at a time. Luma is prefetched in address order also with two rows at a
// time, because the hardware prefetcher does not recognise two alternating rows as a stream and reads from memory are
// then half as fast.
template <class Block, int rows, class Target>
void ConvertRows(const I420Planes& source, std::ptrdiff_t width, std::ptrdiff_t from, std::ptrdiff_t to,
                 const Target& target) {
    const Block block;
    for (std::ptrdiff_t row = from; row < to; row += rows) {
        const BlockSource start = {source.y + row * source.yStride, source.yStride, source.u + row / 2 * source.uStride,
                                   source.v + row / 2 * source.vStride};
        const bool isFirstOfChroma = row % 2 == 0;
        ForEachBlock<Block, rows>(
            block, start, width,
            [&](const auto& prepared, std::ptrdiff_t column, auto& following) KERNEL_INLINE_LAMBDA {
                target.template Store<rows>(block, prepared, start.At(column), row, column, following);
            },
            [&](std::ptrdiff_t column) KERNEL_INLINE_LAMBDA {
                Prefetch(start.y, lumaPrefetchDistance + rows * column, rows * Block::pixels);
                if (isFirstOfChroma) {
                    Prefetch(start.u, chromaPrefetchDistance + column / 2, Block::pixels / 2);
                    Prefetch(start.v, chromaPrefetchDistance + column / 2, Block::pixels / 2);
                }
            });
    }
}

// Two rows at a time share the work on their chroma and are faster while the frame is in a cache. From memory, one row
// at a time can be faster, because it reads and writes fewer streams; how much, and from which size on, differs between
// processors. A large frame is therefore tried in both ways, and the rest of it is converted in the faster one. A
// disturbed measurement costs some of this frame's speed and nothing else.
template <class Block, class Target>
void ConvertFrame(const I420Planes& source, std::ptrdiff_t width, std::ptrdiff_t height, const Target& target) {
    std::ptrdiff_t row = 0;
    auto* convert = ConvertRows<Block, 2, Target>;
    if constexpr (Block::triesSingleRows) {
        constexpr std::ptrdiff_t fewestPixels = 512 * 1024;
        constexpr std::ptrdiff_t skipped = 8;  // until the prefetches are ahead
        constexpr std::ptrdiff_t tried = 16;
        if (width * height >= fewestPixels && height >= skipped + 2 * tried) {
            convert(source, width, 0, skipped, target);
            const std::uint64_t start = __rdtsc();
            convert(source, width, skipped, skipped + tried, target);
            const std::uint64_t middle = __rdtsc();
            row = skipped + 2 * tried;
            ConvertRows<Block, 1>(source, width, skipped + tried, row, target);
            if (__rdtsc() - middle < middle - start) {
                convert = ConvertRows<Block, 1, Target>;
            }
        }
    }
    convert(source, width, row, height, target);
}

// True if an output should bypass the caches and can: every block starts at a sum of multiples of its size and of the
// numbers whose bits are in `bits`, which are addresses, strides and offsets of the last block.
template <class Block>
bool BypassesCaches(std::ptrdiff_t outputBytes, std::intptr_t bits) {
    return outputBytes > largestCachedOutput && bits % Block::streamAlignment == 0;
}

KERNEL_INLINE std::intptr_t BitsOf(const std::uint8_t* address) {
    return reinterpret_cast<std::intptr_t>(address);
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
    const std::intptr_t bits = BitsOf(bgr) | stride | 3 * (evenWidth - Block::pixels);
    if (BypassesCaches<Block>(3 * evenWidth * evenHeight, bits)) {
        ConvertFrame<Block>(source, evenWidth, evenHeight, InterleavedTarget<true>{bgr, stride});
        _mm_sfence();
    } else {
        ConvertFrame<Block>(source, evenWidth, evenHeight, InterleavedTarget<false>{bgr, stride});
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
    const std::intptr_t bits =
        BitsOf(target.blue) | BitsOf(target.green) | BitsOf(target.red) | target.stride | (evenWidth - Block::pixels);
    if (BypassesCaches<Block>(3 * evenWidth * evenHeight, bits)) {
        ConvertFrame<Block>(source, evenWidth, evenHeight, PlanarTarget<true>{target});
        _mm_sfence();
    } else {
        ConvertFrame<Block>(source, evenWidth, evenHeight, PlanarTarget<false>{target});
    }
    return status;
}

template <class Block, bool nonTemporal>
void ConvertGreyRows(const std::uint8_t* grey, std::ptrdiff_t greyStride, std::uint8_t* bgr, std::ptrdiff_t stride,
                     std::ptrdiff_t width, std::ptrdiff_t height) {
    const Block block;
    const std::ptrdiff_t last = width - Block::pixels;
    for (std::ptrdiff_t row = 0; row < height; ++row) {
        const std::uint8_t* source = grey + row * greyStride;
        std::uint8_t* target = bgr + row * stride;
        for (std::ptrdiff_t column = 0; column < last; column += Block::pixels) {
            block.template StoreGreyAsBgr<nonTemporal>(source + column, target + 3 * column);
        }
        block.template StoreGreyAsBgr<nonTemporal>(source + last, target + 3 * last);
    }
}

template <class Block, const Kernel& narrower>
int VectorGreyToBgr24(const std::uint8_t* grey, std::ptrdiff_t greyStride, std::uint8_t* bgr, std::ptrdiff_t stride,
                      std::int32_t width, std::int32_t height) {
    const int status = GreyStatusOf(width, height, grey != nullptr && bgr != nullptr);
    if (status != Status::Ok || width < Block::pixels) {
        return status == Status::Ok ? narrower.greyToBgr24(grey, greyStride, bgr, stride, width, height) : status;
    }
    const std::intptr_t bits = BitsOf(bgr) | stride | 3 * (width - Block::pixels);
    if (BypassesCaches<Block>(std::ptrdiff_t{3} * width * height, bits)) {
        ConvertGreyRows<Block, true>(grey, greyStride, bgr, stride, width, height);
        _mm_sfence();
    } else {
        ConvertGreyRows<Block, false>(grey, greyStride, bgr, stride, width, height);
    }
    return status;
}

}  // namespace
}  // namespace image_transform::kernels
