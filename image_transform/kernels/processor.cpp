#include "image_transform/kernels/processor.h"

#include <algorithm>
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
Registers Cpuid(std::uint32_t leaf, std::uint32_t part = 0) {
    constexpr std::uint32_t firstExtendedLeaf = 0x80000000;
    int result[4];
    __cpuid(result, static_cast<int>(leaf & firstExtendedLeaf));
    if (static_cast<std::uint32_t>(result[0]) < leaf) {
        return {};
    }
    __cpuidex(result, static_cast<int>(leaf), static_cast<int>(part));
    return {static_cast<std::uint32_t>(result[0]), static_cast<std::uint32_t>(result[1]),
            static_cast<std::uint32_t>(result[2]), static_cast<std::uint32_t>(result[3])};
}

std::uint64_t EnabledStates() {
    return static_cast<std::uint64_t>(_xgetbv(0));
}

#else

// Returns zeros for a leaf that the processor does not have.
Registers Cpuid(std::uint32_t leaf, std::uint32_t part = 0) {
    Registers result;
    if (__get_cpuid_count(leaf, part, &result.a, &result.b, &result.c, &result.d) == 0) {
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

// Bits `from` to `to` of a register.
constexpr std::int64_t Field(std::uint32_t bits, int from, int to) {
    return (bits >> from) & ((1u << (to - from + 1)) - 1);
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

std::int64_t LargestCacheSize() {
    std::int64_t largest = 0;
    // Intel's leaf and AMD's have the same format; on the other maker's processors they are empty or absent.
    for (const std::uint32_t leaf : {4u, 0x8000001Du}) {
        constexpr std::uint32_t mostCaches = 16;
        for (std::uint32_t cache = 0; cache < mostCaches; ++cache) {
            const Registers described = Cpuid(leaf, cache);
            if (Field(described.a, 0, 4) == 0) {  // the kind of the cache
                break;
            }
            const std::int64_t lineSize = Field(described.b, 0, 11) + 1;
            const std::int64_t partitions = Field(described.b, 12, 21) + 1;
            const std::int64_t ways = Field(described.b, 22, 31) + 1;
            const std::int64_t sets = std::int64_t{described.c} + 1;
            largest = std::max(largest, ways * partitions * lineSize * sets);
        }
    }
    return largest;
}

}  // namespace image_transform::kernels::processor
