// AVX-512 without VBMI, where byte shuffles stay within 16-byte lanes: each channel is computed by itself, and the
// three are interleaved at the end.

#include "image_transform/kernels/block_loop.h"
#include "image_transform/kernels/processor.h"

namespace image_transform::kernels {

namespace {

using Bytes = __m512i;

constexpr int registerBytes = 64;

KERNEL_INLINE Bytes Load(const std::uint8_t* bytes) {
    return _mm512_loadu_si512(bytes);
}

template <bool nonTemporal>
KERNEL_INLINE void Store(std::uint8_t* bytes, Bytes value) {
    if constexpr (nonTemporal) {
        _mm512_stream_si512(reinterpret_cast<__m512i*>(bytes), value);
    } else {
        _mm512_storeu_si512(bytes, value);
    }
}

// Masks that select every third byte of a lane. Byte `at` of output lane `part` belongs to channel (16 part + at) % 3,
// so over the three output lanes each position belongs to each channel once.
constexpr __mmask64 everyThird[3] = {0x9249924992499249, 0x2492249224922492, 0x4924492449244924};

// The offsets of 64 chroma pairs, with their eighths in the order 0, 4, 1, 5, 2, 6, 3, 7: duplicated within lanes, the
// lower halves of the lanes are the left 64 pixels in order, and the upper halves are the right 64.
struct Offsets {
    Bytes positiveBlue, positiveGreen, positiveRed;
    Bytes negativeBlue, negativeGreen, negativeRed;
};

template <int half>
KERNEL_INLINE Bytes Duplicate(Bytes value) {
    return half == 0 ? _mm512_unpacklo_epi8(value, value) : _mm512_unpackhi_epi8(value, value);
}

KERNEL_INLINE Bytes ApplyOffset(Bytes luma, Bytes positive, Bytes negative) {
    return _mm512_subs_epu8(_mm512_adds_epu8(luma, positive), negative);
}

// The output is lane 0 of the first, the second and the third register, then lane 1 of the first, and so on.
template <bool nonTemporal>
KERNEL_INLINE void InterleaveAndStore(std::uint8_t* bgr, Bytes blue, Bytes green, Bytes red) {
    const Bytes blueIndices =
        _mm512_broadcast_i32x4(_mm_setr_epi8(0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15, 10, 5));
    const Bytes greenIndices =
        _mm512_broadcast_i32x4(_mm_setr_epi8(5, 0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15, 10));
    const Bytes redIndices =
        _mm512_broadcast_i32x4(_mm_setr_epi8(10, 5, 0, 11, 6, 1, 12, 7, 2, 13, 8, 3, 14, 9, 4, 15));
    const Bytes blues = _mm512_shuffle_epi8(blue, blueIndices);
    const Bytes greens = _mm512_shuffle_epi8(green, greenIndices);
    const Bytes reds = _mm512_shuffle_epi8(red, redIndices);
    const auto merged = [&](int greenMask, int redMask) KERNEL_INLINE_LAMBDA {
        return _mm512_mask_blend_epi8(everyThird[redMask], _mm512_mask_blend_epi8(everyThird[greenMask], blues, greens),
                                      reds);
    };
    const Bytes first = merged(1, 2);
    const Bytes second = merged(0, 1);
    const Bytes third = merged(2, 0);

    const Bytes firstAndSecond[3] = {
        _mm512_permutex2var_epi64(first, _mm512_setr_epi64(0, 1, 8, 9, 0, 0, 2, 3), second),
        _mm512_permutex2var_epi64(first, _mm512_setr_epi64(10, 11, 0, 0, 4, 5, 12, 13), second),
        _mm512_permutex2var_epi64(first, _mm512_setr_epi64(0, 0, 6, 7, 14, 15, 0, 0), second)};
    Store<nonTemporal>(
        bgr, _mm512_mask_permutexvar_epi64(firstAndSecond[0], 0x30, _mm512_setr_epi64(0, 0, 0, 0, 0, 1, 0, 0), third));
    Store<nonTemporal>(
        bgr + registerBytes,
        _mm512_mask_permutexvar_epi64(firstAndSecond[1], 0x0C, _mm512_setr_epi64(0, 0, 2, 3, 0, 0, 0, 0), third));
    Store<nonTemporal>(
        bgr + 2 * registerBytes,
        _mm512_mask_permutexvar_epi64(firstAndSecond[2], 0xC3, _mm512_setr_epi64(4, 5, 0, 0, 0, 0, 6, 7), third));
}

class Block {
  public:
    static constexpr std::ptrdiff_t pixels = 128;
    static constexpr std::ptrdiff_t streamAlignment = registerBytes;
    static constexpr int preparationSteps = 0;
    static constexpr bool triesSingleRows = false;
    template <int rows>
    using Prepared = Offsets;
    template <int rows>
    class Preparation;

    template <int rows, bool nonTemporal, class Following>
    KERNEL_INLINE void StoreInterleaved(const Offsets& offsets, const BlockSource& source, std::uint8_t* bgr,
                                        std::ptrdiff_t stride, Following&) const {
        StoreInterleavedHalf<rows, 0, nonTemporal>(offsets, source.y, source.stride, bgr, stride);
        StoreInterleavedHalf<rows, 1, nonTemporal>(offsets, source.y + registerBytes, source.stride,
                                                   bgr + 3 * registerBytes, stride);
    }

    template <int rows, bool nonTemporal, class Following>
    KERNEL_INLINE void StorePlanar(const Offsets& offsets, const BlockSource& source, const BgrPlanes& target,
                                   Following&) const {
        StorePlane<rows, nonTemporal>(offsets.positiveBlue, offsets.negativeBlue, source, target.blue, target.stride);
        StorePlane<rows, nonTemporal>(offsets.positiveGreen, offsets.negativeGreen, source, target.green,
                                      target.stride);
        StorePlane<rows, nonTemporal>(offsets.positiveRed, offsets.negativeRed, source, target.red, target.stride);
    }

    template <bool nonTemporal>
    KERNEL_INLINE void StoreGreyAsBgr(const std::uint8_t* grey, std::uint8_t* bgr) const {
        KERNEL_UNROLL(2)
        for (int half = 0; half < 2; ++half) {
            const Bytes luma = Load(grey + registerBytes * half);
            InterleaveAndStore<nonTemporal>(bgr + 3 * registerBytes * half, luma, luma, luma);
        }
    }

  private:
    template <int rows, int half, bool nonTemporal>
    KERNEL_INLINE static void StoreInterleavedHalf(const Offsets& offsets, const std::uint8_t* y,
                                                   std::ptrdiff_t yStride, std::uint8_t* bgr, std::ptrdiff_t stride) {
        const Offsets duplicated = {Duplicate<half>(offsets.positiveBlue),  Duplicate<half>(offsets.positiveGreen),
                                    Duplicate<half>(offsets.positiveRed),   Duplicate<half>(offsets.negativeBlue),
                                    Duplicate<half>(offsets.negativeGreen), Duplicate<half>(offsets.negativeRed)};
        KERNEL_UNROLL(2)
        for (int row = 0; row < rows; ++row) {
            const Bytes luma = Load(y + row * yStride);
            InterleaveAndStore<nonTemporal>(bgr + row * stride,
                                            ApplyOffset(luma, duplicated.positiveBlue, duplicated.negativeBlue),
                                            ApplyOffset(luma, duplicated.positiveGreen, duplicated.negativeGreen),
                                            ApplyOffset(luma, duplicated.positiveRed, duplicated.negativeRed));
        }
    }

    template <int rows, bool nonTemporal>
    KERNEL_INLINE static void StorePlane(const Bytes& positive, const Bytes& negative, const BlockSource& source,
                                         std::uint8_t* plane, std::ptrdiff_t stride) {
        KERNEL_UNROLL(2)
        for (int row = 0; row < rows; ++row) {
            const std::uint8_t* luma = source.y + row * source.stride;
            std::uint8_t* target = plane + row * stride;
            Store<nonTemporal>(target, ApplyOffset(Load(luma), Duplicate<0>(positive), Duplicate<0>(negative)));
            Store<nonTemporal>(target + registerBytes,
                               ApplyOffset(Load(luma + registerBytes), Duplicate<1>(positive), Duplicate<1>(negative)));
        }
    }
};

template <int rows>
class Block::Preparation {
  public:
    KERNEL_INLINE Preparation(const Block&, const BlockSource& source) {
        const Bytes eighths = _mm512_setr_epi64(0, 4, 1, 5, 2, 6, 3, 7);
        const Bytes u = _mm512_permutexvar_epi64(eighths, Load(source.u));
        const Bytes v = _mm512_permutexvar_epi64(eighths, Load(source.v));
        const Bytes zero = _mm512_setzero_si512();
        const Bytes middle = _mm512_set1_epi16(128);

        const Bytes uFactor = _mm512_set1_epi16(blueFromUFraction);
        const Bytes uLower = _mm512_sub_epi16(_mm512_unpacklo_epi8(u, zero), middle);
        const Bytes uUpper = _mm512_sub_epi16(_mm512_unpackhi_epi8(u, zero), middle);
        const Bytes blueLower = _mm512_add_epi16(_mm512_add_epi16(uLower, uLower), _mm512_mulhi_epi16(uLower, uFactor));
        const Bytes blueUpper = _mm512_add_epi16(_mm512_add_epi16(uUpper, uUpper), _mm512_mulhi_epi16(uUpper, uFactor));
        offsets_.positiveBlue = _mm512_packus_epi16(blueLower, blueUpper);
        offsets_.negativeBlue =
            _mm512_packus_epi16(_mm512_sub_epi16(zero, blueLower), _mm512_sub_epi16(zero, blueUpper));

        const Bytes vFactor = _mm512_set1_epi16(redFromVFraction);
        const Bytes vLower = _mm512_sub_epi16(_mm512_unpacklo_epi8(v, zero), middle);
        const Bytes vUpper = _mm512_sub_epi16(_mm512_unpackhi_epi8(v, zero), middle);
        const Bytes redLower = _mm512_add_epi16(vLower, _mm512_mulhi_epi16(vLower, vFactor));
        const Bytes redUpper = _mm512_add_epi16(vUpper, _mm512_mulhi_epi16(vUpper, vFactor));
        offsets_.positiveRed = _mm512_packus_epi16(redLower, redUpper);
        offsets_.negativeRed = _mm512_packus_epi16(_mm512_sub_epi16(zero, redLower), _mm512_sub_epi16(zero, redUpper));

        const Bytes sums =
            _mm512_packs_epi16(GreenSums(_mm512_unpacklo_epi8(v, u)), GreenSums(_mm512_unpackhi_epi8(v, u)));
        const Bytes green = _mm512_add_epi8(_mm512_sub_epi8(sums, v), _mm512_set1_epi8(greenByteBias));
        offsets_.positiveGreen = _mm512_max_epi8(green, zero);
        offsets_.negativeGreen = _mm512_sub_epi8(offsets_.positiveGreen, green);
    }

    KERNEL_INLINE void Step(int) {}
    KERNEL_INLINE const Offsets& Result() const { return offsets_; }

  private:
    KERNEL_INLINE static Bytes GreenSums(const Bytes& pairs) {
        const Bytes lower = _mm512_add_epi16(_mm512_maddubs_epi16(pairs, _mm512_set1_epi16(greenLower)),
                                             _mm512_set1_epi16(greenLowerBias));
        const Bytes upper = _mm512_maddubs_epi16(pairs, _mm512_set1_epi16(greenUpper));
        return _mm512_srai_epi16(_mm512_add_epi16(upper, _mm512_srai_epi16(lower, 8)), 8);
    }

    Offsets offsets_;
};

}  // namespace

constinit const Kernel avx512BwKernel = {"avx512bw", processor::HasAvx512Bw, VectorToBgr24<Block, avx2Kernel>,
                                         VectorToBgrPlanar<Block, avx2Kernel>, VectorGreyToBgr24<Block, avx2Kernel>};

}  // namespace image_transform::kernels
