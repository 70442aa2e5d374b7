#include "image_transform/kernels/lanes.h"
#include "image_transform/kernels/processor.h"

namespace image_transform::kernels {

namespace {

// A register of one 16-byte lane.
struct OneLane {
    using Bytes = __m128i;
    static constexpr int count = 1;

    static KERNEL_INLINE __m128i LoadLane(const std::uint8_t* bytes) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
    }
    template <bool nonTemporal>
    static KERNEL_INLINE void StoreLane(std::uint8_t* bytes, __m128i lane) {
        if constexpr (nonTemporal) {
            _mm_stream_si128(reinterpret_cast<__m128i*>(bytes), lane);
        } else {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes), lane);
        }
    }

    static KERNEL_INLINE Bytes Load(const std::uint8_t* bytes) { return LoadLane(bytes); }
    static KERNEL_INLINE Bytes LoadLanes(const std::uint8_t* bytes, std::ptrdiff_t) { return LoadLane(bytes); }
    template <bool nonTemporal>
    static KERNEL_INLINE void StoreLanes(std::uint8_t* bytes, std::ptrdiff_t, Bytes value) {
        StoreLane<nonTemporal>(bytes, value);
    }
    template <bool nonTemporal>
    static KERNEL_INLINE void StoreLaneTriples(std::uint8_t* bytes, std::ptrdiff_t, const Bytes (&values)[3]) {
        KERNEL_UNROLL(3)
        for (int part = 0; part < 3; ++part) {
            StoreLane<nonTemporal>(bytes + laneBytes * part, values[part]);
        }
    }
    static KERNEL_INLINE Bytes BroadcastLane(const LaneIndices& indices) { return LoadLane(indices); }

    static KERNEL_INLINE Bytes Zero() { return _mm_setzero_si128(); }
    static KERNEL_INLINE Bytes Broadcast8(std::int8_t value) { return _mm_set1_epi8(value); }
    static KERNEL_INLINE Bytes Broadcast16(std::int16_t value) { return _mm_set1_epi16(value); }
    static KERNEL_INLINE Bytes UnpackLower8(Bytes a, Bytes b) { return _mm_unpacklo_epi8(a, b); }
    static KERNEL_INLINE Bytes UnpackUpper8(Bytes a, Bytes b) { return _mm_unpackhi_epi8(a, b); }
    static KERNEL_INLINE Bytes UnpackLower16(Bytes a, Bytes b) { return _mm_unpacklo_epi16(a, b); }
    static KERNEL_INLINE Bytes UnpackUpper16(Bytes a, Bytes b) { return _mm_unpackhi_epi16(a, b); }
    static KERNEL_INLINE Bytes Shuffle(Bytes a, Bytes indices) { return _mm_shuffle_epi8(a, indices); }
    // The upper half of `a` followed by the lower half of `b`.
    static KERNEL_INLINE Bytes JoinHalves(Bytes a, Bytes b) { return _mm_alignr_epi8(b, a, 8); }
    static KERNEL_INLINE Bytes Add8(Bytes a, Bytes b) { return _mm_add_epi8(a, b); }
    static KERNEL_INLINE Bytes Subtract8(Bytes a, Bytes b) { return _mm_sub_epi8(a, b); }
    static KERNEL_INLINE Bytes MaxSigned8(Bytes a, Bytes b) { return _mm_max_epi8(a, b); }
    static KERNEL_INLINE Bytes AddSaturated(Bytes a, Bytes b) { return _mm_adds_epu8(a, b); }
    static KERNEL_INLINE Bytes SubtractSaturated(Bytes a, Bytes b) { return _mm_subs_epu8(a, b); }
    static KERNEL_INLINE Bytes Add16(Bytes a, Bytes b) { return _mm_add_epi16(a, b); }
    static KERNEL_INLINE Bytes Subtract16(Bytes a, Bytes b) { return _mm_sub_epi16(a, b); }
    static KERNEL_INLINE Bytes MultiplyHigh16(Bytes a, Bytes b) { return _mm_mulhi_epi16(a, b); }
    static KERNEL_INLINE Bytes MultiplyAddPairs(Bytes unsignedBytes, Bytes signedBytes) {
        return _mm_maddubs_epi16(unsignedBytes, signedBytes);
    }
    static KERNEL_INLINE Bytes UpperByte16(Bytes a) { return _mm_srai_epi16(a, 8); }
    static KERNEL_INLINE Bytes PackUnsigned(Bytes a, Bytes b) { return _mm_packus_epi16(a, b); }
    static KERNEL_INLINE Bytes PackSigned(Bytes a, Bytes b) { return _mm_packs_epi16(a, b); }
};

using Block = LaneBlock<OneLane>;

}  // namespace

constinit const Kernel sse41Kernel = {"sse41", processor::HasSse41, VectorToBgr24<Block, scalarKernel>,
                                      VectorToBgrPlanar<Block, scalarKernel>, VectorGreyToBgr24<Block, scalarKernel>};

}  // namespace image_transform::kernels
