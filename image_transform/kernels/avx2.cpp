#include "image_transform/kernels/lanes.h"
#include "image_transform/kernels/processor.h"

namespace image_transform::kernels {

namespace {

// A register of two 16-byte lanes.
struct TwoLanes {
    using Bytes = __m256i;
    static constexpr int count = 2;

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

    static KERNEL_INLINE Bytes Load(const std::uint8_t* bytes) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
    }
    static KERNEL_INLINE Bytes LoadLanes(const std::uint8_t* bytes, std::ptrdiff_t distance) {
        return _mm256_inserti128_si256(_mm256_castsi128_si256(LoadLane(bytes)), LoadLane(bytes + distance), 1);
    }
    template <bool nonTemporal>
    static KERNEL_INLINE void StoreLanes(std::uint8_t* bytes, std::ptrdiff_t distance, Bytes value) {
        StoreLane<nonTemporal>(bytes, _mm256_castsi256_si128(value));
        StoreLane<nonTemporal>(bytes + distance, _mm256_extracti128_si256(value, 1));
    }
    // Stores, for each lane, that lane of the three values one after the other.
    template <bool nonTemporal>
    static KERNEL_INLINE void StoreLaneTriples(std::uint8_t* bytes, std::ptrdiff_t distance, const Bytes (&values)[3]) {
        if constexpr (nonTemporal) {
            StoreLanes<true>(bytes, distance, values[0]);
            StoreLanes<true>(bytes + laneBytes, distance, values[1]);
        } else {
            Store(bytes, _mm256_inserti128_si256(values[0], _mm256_castsi256_si128(values[1]), 1));
            Store(bytes + distance, _mm256_permute2x128_si256(values[0], values[1], 0x31));
        }
        StoreLanes<nonTemporal>(bytes + 2 * laneBytes, distance, values[2]);
    }
    static KERNEL_INLINE void Store(std::uint8_t* bytes, Bytes value) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(bytes), value);
    }
    static KERNEL_INLINE Bytes BroadcastLane(const LaneIndices& indices) {
        return _mm256_broadcastsi128_si256(LoadLane(indices));
    }

    static KERNEL_INLINE Bytes Zero() { return _mm256_setzero_si256(); }
    static KERNEL_INLINE Bytes Broadcast8(std::int8_t value) { return _mm256_set1_epi8(value); }
    static KERNEL_INLINE Bytes Broadcast16(std::int16_t value) { return _mm256_set1_epi16(value); }
    static KERNEL_INLINE Bytes UnpackLower8(Bytes a, Bytes b) { return _mm256_unpacklo_epi8(a, b); }
    static KERNEL_INLINE Bytes UnpackUpper8(Bytes a, Bytes b) { return _mm256_unpackhi_epi8(a, b); }
    static KERNEL_INLINE Bytes UnpackLower16(Bytes a, Bytes b) { return _mm256_unpacklo_epi16(a, b); }
    static KERNEL_INLINE Bytes UnpackUpper16(Bytes a, Bytes b) { return _mm256_unpackhi_epi16(a, b); }
    static KERNEL_INLINE Bytes Shuffle(Bytes a, Bytes indices) { return _mm256_shuffle_epi8(a, indices); }
    // Per lane: the upper half of `a` followed by the lower half of `b`.
    static KERNEL_INLINE Bytes JoinHalves(Bytes a, Bytes b) { return _mm256_alignr_epi8(b, a, 8); }
    static KERNEL_INLINE Bytes Add8(Bytes a, Bytes b) { return _mm256_add_epi8(a, b); }
    static KERNEL_INLINE Bytes Subtract8(Bytes a, Bytes b) { return _mm256_sub_epi8(a, b); }
    static KERNEL_INLINE Bytes MaxSigned8(Bytes a, Bytes b) { return _mm256_max_epi8(a, b); }
    static KERNEL_INLINE Bytes AddSaturated(Bytes a, Bytes b) { return _mm256_adds_epu8(a, b); }
    static KERNEL_INLINE Bytes SubtractSaturated(Bytes a, Bytes b) { return _mm256_subs_epu8(a, b); }
    static KERNEL_INLINE Bytes Add16(Bytes a, Bytes b) { return _mm256_add_epi16(a, b); }
    static KERNEL_INLINE Bytes Subtract16(Bytes a, Bytes b) { return _mm256_sub_epi16(a, b); }
    static KERNEL_INLINE Bytes MultiplyHigh16(Bytes a, Bytes b) { return _mm256_mulhi_epi16(a, b); }
    static KERNEL_INLINE Bytes MultiplyAddPairs(Bytes unsignedBytes, Bytes signedBytes) {
        return _mm256_maddubs_epi16(unsignedBytes, signedBytes);
    }
    static KERNEL_INLINE Bytes UpperByte16(Bytes a) { return _mm256_srai_epi16(a, 8); }
    static KERNEL_INLINE Bytes PackUnsigned(Bytes a, Bytes b) { return _mm256_packus_epi16(a, b); }
    static KERNEL_INLINE Bytes PackSigned(Bytes a, Bytes b) { return _mm256_packs_epi16(a, b); }
};

using Block = LaneBlock<TwoLanes>;

}  // namespace

constinit const Kernel avx2Kernel = {"avx2", processor::HasAvx2, VectorToBgr24<Block, sse41Kernel>,
                                     VectorToBgrPlanar<Block, sse41Kernel>, VectorGreyToBgr24<Block, sse41Kernel>};

}  // namespace image_transform::kernels
