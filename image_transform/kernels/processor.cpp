#include "image_transform/kernels/processor.h"

#include <cstdint>

#if defined(_MSC_VER) && !defined(__clang__)
#include <intrin.h>
#else
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace image_transform::kernels::processor {

namespace {

struct Registers {
    std::uint32_t a = 0;
    std::uint32_t b = 0;
    std::uint32_t c = 0;
    std::uint32_t d = 0;
};

#if defined(_MSC_VER) && !defined(__clang__)

// Returns zeros for a leaf that the processor does not have.
Registers Cpuid(std::uint32_t leaf) {
    int result[4];
    __cpuid(result, 0);
    if (static_cast<std::uint32_t>(result[0]) < leaf) {
        return {};
    }
    __cpuidex(result, static_cast<int>(leaf), 0);
    return {static_cast<std::uint32_t>(result[0]), static_cast<std::uint32_t>(result[1]),
            static_cast<std::uint32_t>(result[2]), static_cast<std::uint32_t>(result[3])};
}

std::uint64_t EnabledStates() {
    return static_cast<std::uint64_t>(_xgetbv(0));
}

#else

// Returns zeros for a leaf that the processor does not have.
Registers Cpuid(std::uint32_t leaf) {
    Registers result;
    if (__get_cpuid_count(leaf, 0, &result.a, &result.b, &result.c, &result.d) == 0) {
        return {};
    }
    return result;
}

__attribute__((target("xsave"))) std::uint64_t EnabledStates() {
    return static_cast<std::uint64_t>(_xgetbv(0));
}

#endif

constexpr bool HasBit(std::uint32_t bits, int bit) {
    return (bits >> bit & 1) != 0;
}

// The system must save the whole registers on a context switch.
bool SystemSaves(std::uint64_t states) {
    constexpr int usesXsave = 27;
    return HasBit(Cpuid(1).c, usesXsave) && (EnabledStates() & states) == states;
}

constexpr std::uint64_t avxStates = 0x06;     // xmm, ymm
constexpr std::uint64_t avx512States = 0xE6;  // and masks, zmm's upper halves, the upper sixteen zmm

}  // namespace

bool HasSse41() {
    constexpr int ssse3 = 9;
    constexpr int sse41 = 19;
    const Registers basic = Cpuid(1);
    return HasBit(basic.c, ssse3) && HasBit(basic.c, sse41);
}

bool HasAvx2() {
    constexpr int avx = 28;
    constexpr int avx2 = 5;
    return HasSse41() && HasBit(Cpuid(1).c, avx) && HasBit(Cpuid(7).b, avx2) && SystemSaves(avxStates);
}

bool HasAvx512Bw() {
    constexpr int avx512F = 16;
    constexpr int avx512Bw = 30;
    constexpr int avx512Vl = 31;
    const Registers extended = Cpuid(7);
    return HasAvx2() && HasBit(extended.b, avx512F) && HasBit(extended.b, avx512Bw) && HasBit(extended.b, avx512Vl) &&
           SystemSaves(avx512States);
}

bool HasAvx512Vbmi() {
    constexpr int avx512Vbmi = 1;
    return HasAvx512Bw() && HasBit(Cpuid(7).c, avx512Vbmi);
}

}  // namespace image_transform::kernels::processor
