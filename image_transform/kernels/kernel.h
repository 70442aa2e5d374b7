/// The conversion routines (kernels) of the converters: one list in priority order, chosen from once at run time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace image_transform::kernels {

/// The status that a routine returns.
namespace Status {
inline constexpr int Ok = 0;
inline constexpr int NullPlane = -8;  ///< nothing is written
inline constexpr int BadSize = -6;    ///< width or height below 1; nothing is written
inline constexpr int OddSize = 35;    ///< odd width or height; the even part is converted
}  // namespace Status

/// Planes of YUV 4:2:0, 8 bits per sample: Y has width x height samples, U and V have half the width and half the
/// height, so one U, V pair covers 2 x 2 pixels. Strides are in bytes. Not owned.
struct I420Planes {
    const std::uint8_t* y;
    const std::uint8_t* u;
    const std::uint8_t* v;
    std::ptrdiff_t yStride;
    std::ptrdiff_t uStride;
    std::ptrdiff_t vStride;
};

/// Planes of width x height bytes each, with one stride in bytes. Not owned.
struct BgrPlanes {
    std::uint8_t* blue;
    std::uint8_t* green;
    std::uint8_t* red;
    std::ptrdiff_t stride;
};

/// Converts YUV 4:2:0 to blue, green, red. Width and height are in pixels. Any thread, on distinct targets. With bytes
/// Y, U, V in 0..255, u = U - 128, v = V - 128, >> rounding toward minus infinity, and R, G, B clamped to 0..255:
///   R = (65536 Y + 74711 v) >> 16               R = Y + 1.140 v
///   G = (65536 Y - 38076 v - 25821 u) >> 16     G = Y - 0.581 v - 0.394 u
///   B = (65536 Y + 133169 u) >> 16              B = Y + 2.032 u
/// Every kernel must write exactly these bytes. The coefficients on the right are rounded to the nearest multiple of
/// 1/65536. They invert the analogue YUV of PAL (ITU-R BT.470, there with 0.493) over the luma of ITU-R BT.601,
///   Y = 0.299 R + 0.587 G + 0.114 B,  U = 0.492 (B - Y),  V = 0.877 (R - Y),
/// in full range: Y is neither offset nor scaled. The exact inverse has 0.395 in place of 0.394. |u| reaches 111 and
/// |v| 157, of which a byte can hold -128..127. These are not the coefficients of Y'CbCr, neither in full range as in
/// JFIF (1.402, 0.714, 0.344, 1.772) nor in limited range with Y in 16..235.
using I420ToBgr24 = int(const I420Planes& source, std::uint8_t* bgr, std::ptrdiff_t stride, std::int32_t width,
                        std::int32_t height);
using I420ToBgrPlanar = int(const I420Planes& source, const BgrPlanes& target, std::int32_t width, std::int32_t height);
/// Copies each luma byte to blue, green and red. Width and height are at least 1 and may be odd.
using GreyToBgr24 = int(const std::uint8_t* grey, std::ptrdiff_t greyStride, std::uint8_t* bgr, std::ptrdiff_t stride,
                        std::int32_t width, std::int32_t height);

/// One kernel: the routines for one instruction set. Any thread.
struct Kernel {
    const char* name;       ///< as in VEXLANE_KERNEL
    bool (*isSupported)();  ///< true when this processor can run it
    I420ToBgr24* toBgr24;
    I420ToBgrPlanar* toBgrPlanar;
    GreyToBgr24* greyToBgr24;
};

/// Returns all kernels of this build, the preferred one first; the last one runs on every processor. Any thread.
std::span<const Kernel> AllKernels();

/// Returns the kernel of that name, or the first supported one when the name is null or unknown or its kernel is not
/// supported by this processor. Any thread.
const Kernel& ChooseKernel(const char* name);

/// Returns the kernel that the converters use. It is chosen while the library is loaded, by the name in the environment
/// variable VEXLANE_KERNEL. Any thread.
const Kernel& ActiveKernel();

/// Bytes. A vector kernel lets a larger output bypass the caches if its rows are aligned, because its beginning would
/// be evicted before it is read: half of the largest cache, and at least 16 MiB. Set while the library is loaded; only
/// tests change it.
extern std::int64_t largestCachedOutput;

/// The kernel that defines the result: every other kernel must write the same bytes.
extern const Kernel scalarKernel;

// On x64 only; other builds do not have them.
extern const Kernel sse41Kernel;
extern const Kernel avx2Kernel;
extern const Kernel avx512BwKernel;
extern const Kernel avx512VbmiKernel;

}  // namespace image_transform::kernels
