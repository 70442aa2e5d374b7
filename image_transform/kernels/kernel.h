/// The row routines behind the converters: one list, in priority order, chosen from once at run time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace image_transform::kernels {

/// What a routine returns.
namespace Status {
inline constexpr int Ok = 0;
inline constexpr int NullPlane = -8;  ///< nothing is written
inline constexpr int BadSize = -6;    ///< width or height below 1; nothing is written
inline constexpr int OddSize = 35;    ///< odd width or height; the even part is converted
}  // namespace Status

/// 8-bit planes; each chroma sample serves a 2 x 2 block of luma. Steps are bytes from row to row.
struct I420Planes {
    const std::uint8_t* y;
    const std::uint8_t* u;
    const std::uint8_t* v;
    std::ptrdiff_t yStride;
    std::ptrdiff_t uStride;
    std::ptrdiff_t vStride;
};

struct BgrPlanes {
    std::uint8_t* blue;
    std::uint8_t* green;
    std::uint8_t* red;
    std::ptrdiff_t step;
};

/// With u = U - 128 and v = V - 128, >> rounding toward minus infinity and the results cut to 0..255:
///   R = (65536 Y + 74711 v) >> 16
///   G = (65536 Y - 38076 v - 25821 u) >> 16
///   B = (65536 Y + 133169 u) >> 16
/// Every kernel gives these bytes exactly.
using I420ToBgr24 = int(const I420Planes& source, std::uint8_t* bgr, std::ptrdiff_t step, std::int32_t width,
                        std::int32_t height);
using I420ToBgrPlanar = int(const I420Planes& source, const BgrPlanes& target, std::int32_t width, std::int32_t height);
/// Copies each byte three times; any width and height from 1.
using GreyToBgr24 = int(const std::uint8_t* grey, std::ptrdiff_t greyStep, std::uint8_t* bgr, std::ptrdiff_t step,
                        std::int32_t width, std::int32_t height);

struct Kernel {
    const char* name;
    bool (*isSupported)();  ///< whether this processor can run it
    I420ToBgr24* toBgr24;
    I420ToBgrPlanar* toBgrPlanar;
    GreyToBgr24* greyToBgr24;
};

/// All kernels of this build, the preferred one first; the last one runs everywhere.
std::span<const Kernel> AllKernels();

/// The kernel that `name` asks for, or, when it is null, unknown or not supported here, the first supported one.
const Kernel& ChooseKernel(const char* name);

/// The kernel that the converters use: chosen while the library is loaded, by the name in the environment variable
/// VEXLANE_KERNEL. Any thread.
const Kernel& ActiveKernel();

/// The routines that define what every other kernel must give.
extern const Kernel scalarKernel;

// Of processors of the x64 family alone; in other builds the list lacks them.
extern const Kernel sse41Kernel;
extern const Kernel avx2Kernel;
extern const Kernel avx512BwKernel;
extern const Kernel avx512VbmiKernel;

}  // namespace image_transform::kernels
