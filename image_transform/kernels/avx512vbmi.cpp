// AVX-512 with VBMI, which permutes bytes across the whole register: everything is computed in the order of the output
// bytes, so no interleaving follows.

#include "image_transform/kernels/block_loop.h"
#include "image_transform/kernels/processor.h"

namespace image_transform::kernels {

namespace {

using Bytes = __m512i;

constexpr int registerBytes = 64;

Bytes Load(const std::uint8_t* bytes) {
    return _mm512_loadu_si512(bytes);
}

template <bool nonTemporal>
void Store(std::uint8_t* bytes, Bytes value) {
    if constexpr (nonTemporal) {
        _mm512_stream_si512(reinterpret_cast<__m512i*>(bytes), value);
    } else {
        _mm512_storeu_si512(bytes, value);
    }
}

constexpr __mmask64 upperHalf = 0xFFFFFFFF00000000;

// The amounts to add to Y and to subtract from Y for red and blue, indexed by the lower seven bits of the chroma value.
// Chroma from 128 on adds; chroma below 128 subtracts.
struct ChromaTables {
    alignas(registerBytes) std::uint8_t redPositive[128];
    alignas(registerBytes) std::uint8_t redNegative[128];
    alignas(registerBytes) std::uint8_t bluePositive[128];
    alignas(registerBytes) std::uint8_t blueNegative[128];
};

constexpr std::uint8_t ClampToByte(std::int32_t magnitude) {
    return static_cast<std::uint8_t>(magnitude > 255 ? 255 : magnitude);
}

constexpr ChromaTables MakeChromaTables() {
    ChromaTables tables{};
    for (std::int32_t value = 0; value < 128; ++value) {
        tables.redPositive[value] = ClampToByte(value + ((redFromVFraction * value) >> 16));
        tables.bluePositive[value] = ClampToByte(2 * value + ((blueFromUFraction * value) >> 16));
        const std::int32_t below = value - 128;
        tables.redNegative[value] = ClampToByte(-(below + ((redFromVFraction * below) >> 16)));
        tables.blueNegative[value] = ClampToByte(-(2 * below + ((blueFromUFraction * below) >> 16)));
    }
    return tables;
}

// Permutation indices: the source of each byte of an output register. Byte `at` of register `part` (of six) is byte
// 64 part + at of the block's output.
struct PermutationIndices {
    alignas(registerBytes) std::uint8_t luma[3][registerBytes];        // of 64 pixels
    alignas(registerBytes) std::uint8_t offsets[6][registerBytes];     // of the two registers described at Offsets
    alignas(registerBytes) std::uint8_t green[registerBytes];          // of two registers of 16-bit sums
    alignas(registerBytes) std::uint8_t duplicated[2][registerBytes];  // of 64 bytes, each duplicated
};

constexpr PermutationIndices MakePermutationIndices() {
    PermutationIndices indices{};
    constexpr int half = registerBytes / 2;
    for (int part = 0; part < 6; ++part) {
        for (int at = 0; at < registerBytes; ++at) {
            const int byte = registerBytes * part + at;
            const int chroma = byte / 3 / 2;
            const int channel = byte % 3;
            // The second register contains red only; the first contains blue and green for one half of the chroma each.
            const bool isInUpperHalf = channel == 0 ? chroma >= half : chroma < half;
            const int inFirst = chroma % half + (isInUpperHalf ? half : 0);
            indices.offsets[part][at] = static_cast<std::uint8_t>(channel == 2 ? registerBytes + chroma : inFirst);
            if (part < 3) {
                indices.luma[part][at] = static_cast<std::uint8_t>(byte / 3);
            }
            if (part < 2) {
                indices.duplicated[part][at] = static_cast<std::uint8_t>(byte / 2);
            }
        }
    }
    for (int at = 0; at < registerBytes; ++at) {
        // The sums are in the order of unpacking: the lower eight of each 16 are in the first register. The halves are
        // swapped, so that green fills the half that blue does not.
        const int chroma = (at + half) % registerBytes;
        const int sum = chroma / 16 * 8 + chroma % 8;
        const int from = (chroma % 16 < 8 ? 0 : registerBytes) + 2 * sum + 1;
        indices.green[at] = static_cast<std::uint8_t>(from);
    }
    return indices;
}

constexpr ChromaTables chromaTables = MakeChromaTables();
constexpr PermutationIndices permutationIndices = MakePermutationIndices();

// The offsets of 64 chroma pairs, to add and to subtract. The `Left` register is for the left half of a block, with
// blue in its lower half and green in its upper half; the `Right` register is for the right half, the other way round.
struct Offsets {
    Bytes positiveLeft, positiveRight, positiveRed;
    Bytes negativeLeft, negativeRight, negativeRed;
};

// 64 luma samples of each row. They are loaded once: for all the compiler knows, the stores between their uses could
// change them, and a load that crosses two cache lines, as every load of an unaligned row does, counts twice.
template <int rows>
struct Luma {
    KERNEL_INLINE static Luma Of(const BlockSource& source, std::ptrdiff_t column) {
        Luma luma;
        KERNEL_UNROLL(2)
        for (int row = 0; row < rows; ++row) {
            luma.row[row] = Load(source.y + row * source.stride + column);
        }
        return luma;
    }

    Bytes row[std::size_t{rows}];
};

class Block {
  public:
    static constexpr std::ptrdiff_t pixels = 128;
    static constexpr std::ptrdiff_t streamAlignment = registerBytes;
    static constexpr int preparationSteps = 6;
    static constexpr bool triesSingleRows = true;
    template <int rows>
    class Preparation;

    // The left luma of a block is loaded during the previous block, so that memory has time.
    template <int rows>
    struct Prepared {
        Offsets offsets;
        Luma<rows> leftLuma;
    };

    template <int rows, bool nonTemporal, class Following>
    KERNEL_INLINE void StoreInterleaved(const Prepared<rows>& prepared, const BlockSource& source, std::uint8_t* bgr,
                                        std::ptrdiff_t stride, Following& following) const {
        const Offsets& offsets = prepared.offsets;
        const Luma<rows> rightLuma = Luma<rows>::Of(source, registerBytes);
        KERNEL_UNROLL(6)
        for (int part = 0; part < 6; ++part) {
            const bool isLeft = part < 3;
            const Luma<rows>& luma = isLeft ? prepared.leftLuma : rightLuma;
            const Bytes positive = _mm512_permutex2var_epi8(isLeft ? offsets.positiveLeft : offsets.positiveRight,
                                                            offsetIndices_[part], offsets.positiveRed);
            const Bytes negative = _mm512_permutex2var_epi8(isLeft ? offsets.negativeLeft : offsets.negativeRight,
                                                            offsetIndices_[part], offsets.negativeRed);
            Bytes sums[std::size_t{rows}];
            KERNEL_UNROLL(2)
            for (int row = 0; row < rows; ++row) {
                sums[row] = _mm512_adds_epu8(_mm512_permutexvar_epi8(lumaIndices_[part % 3], luma.row[row]), positive);
            }
            KERNEL_UNROLL(2)
            for (int row = 0; row < rows; ++row) {
                Store<nonTemporal>(bgr + row * stride + registerBytes * part, _mm512_subs_epu8(sums[row], negative));
            }
            following.Step(part);
        }
    }

    template <int rows, bool nonTemporal, class Following>
    KERNEL_INLINE void StorePlanar(const Prepared<rows>& prepared, const BlockSource& source, const BgrPlanes& target,
                                   Following& following) const {
        const Offsets& offsets = prepared.offsets;
        const Luma<rows> rightLuma = Luma<rows>::Of(source, registerBytes);
        const Bytes lower = Load(permutationIndices.duplicated[0]);
        const Bytes upper = Load(permutationIndices.duplicated[1]);
        const auto store = [&](std::uint8_t* plane, const Bytes& leftIndices, const Bytes& rightIndices,
                               const Bytes& positiveLeft, const Bytes& positiveRight, const Bytes& negativeLeft,
                               const Bytes& negativeRight) KERNEL_INLINE_LAMBDA {
            const Bytes positive[2] = {_mm512_permutexvar_epi8(leftIndices, positiveLeft),
                                       _mm512_permutexvar_epi8(rightIndices, positiveRight)};
            const Bytes negative[2] = {_mm512_permutexvar_epi8(leftIndices, negativeLeft),
                                       _mm512_permutexvar_epi8(rightIndices, negativeRight)};
            KERNEL_UNROLL(2)
            for (int row = 0; row < rows; ++row) {
                KERNEL_UNROLL(2)
                for (int half = 0; half < 2; ++half) {
                    const Bytes& luma = half == 0 ? prepared.leftLuma.row[row] : rightLuma.row[row];
                    Store<nonTemporal>(plane + row * target.stride + half * registerBytes,
                                       _mm512_subs_epu8(_mm512_adds_epu8(luma, positive[half]), negative[half]));
                }
            }
        };
        store(target.blue, lower, upper, offsets.positiveLeft, offsets.positiveRight, offsets.negativeLeft,
              offsets.negativeRight);
        following.Step(0);
        following.Step(1);
        store(target.green, upper, lower, offsets.positiveLeft, offsets.positiveRight, offsets.negativeLeft,
              offsets.negativeRight);
        following.Step(2);
        following.Step(3);
        store(target.red, lower, upper, offsets.positiveRed, offsets.positiveRed, offsets.negativeRed,
              offsets.negativeRed);
        following.Step(4);
        following.Step(5);
    }

    template <bool nonTemporal>
    KERNEL_INLINE void StoreGreyAsBgr(const std::uint8_t* grey, std::uint8_t* bgr) const {
        const Bytes luma[2] = {Load(grey), Load(grey + registerBytes)};
        KERNEL_UNROLL(6)
        for (int part = 0; part < 6; ++part) {
            Store<nonTemporal>(bgr + registerBytes * part,
                               _mm512_permutexvar_epi8(lumaIndices_[part % 3], luma[part / 3]));
        }
    }

  private:
    struct Table {
        explicit Table(const std::uint8_t* bytes) : lower(Load(bytes)), upper(Load(bytes + registerBytes)) {}
        KERNEL_INLINE Bytes Of(__mmask64 which, Bytes index) const {
            return _mm512_maskz_permutex2var_epi8(which, lower, index, upper);
        }
        Bytes lower;
        Bytes upper;
    };

    Table redPositive_{chromaTables.redPositive};
    Table redNegative_{chromaTables.redNegative};
    Table bluePositive_{chromaTables.bluePositive};
    Table blueNegative_{chromaTables.blueNegative};
    Bytes lumaIndices_[3] = {Load(permutationIndices.luma[0]), Load(permutationIndices.luma[1]),
                             Load(permutationIndices.luma[2])};
    Bytes offsetIndices_[6] = {Load(permutationIndices.offsets[0]), Load(permutationIndices.offsets[1]),
                               Load(permutationIndices.offsets[2]), Load(permutationIndices.offsets[3]),
                               Load(permutationIndices.offsets[4]), Load(permutationIndices.offsets[5])};
    Bytes greenIndices_ = Load(permutationIndices.green);
};

// Computes the offsets of 64 chroma pairs in steps of about equal cost. It loads the left luma after the step in which
// interleaved output uses that of the previous block for the last time.
template <int rows>
class Block::Preparation {
  public:
    KERNEL_INLINE Preparation(const Block& owner, const BlockSource& source)
        : block_(owner), source_(source), u_(Load(source.u)), v_(Load(source.v)) {}

    KERNEL_INLINE void Step(int step) {
        switch (step) {
            case 0: {
                pairs_[0] = _mm512_unpacklo_epi8(v_, u_);
                pairs_[1] = _mm512_unpackhi_epi8(v_, u_);
                break;
            }
            case 1: {
                const Bytes factors = _mm512_set1_epi16(greenLower);
                sums_[0] = _mm512_maddubs_epi16(pairs_[0], factors);
                sums_[1] = _mm512_maddubs_epi16(pairs_[1], factors);
                const __mmask64 isPositive = _mm512_movepi8_mask(v_);
                prepared_.offsets.positiveRed = block_.redPositive_.Of(isPositive, v_);
                prepared_.offsets.negativeRed = block_.redNegative_.Of(_knot_mask64(isPositive), v_);
                break;
            }
            case 2: {
                const Bytes bias = _mm512_set1_epi16(greenLowerBias);
                sums_[0] = _mm512_srai_epi16(_mm512_add_epi16(sums_[0], bias), 8);
                sums_[1] = _mm512_srai_epi16(_mm512_add_epi16(sums_[1], bias), 8);
                prepared_.leftLuma = Luma<rows>::Of(source_, 0);
                break;
            }
            case 3: {
                const Bytes factors = _mm512_set1_epi16(greenUpper);
                sums_[0] = _mm512_add_epi16(_mm512_maddubs_epi16(pairs_[0], factors), sums_[0]);
                sums_[1] = _mm512_add_epi16(_mm512_maddubs_epi16(pairs_[1], factors), sums_[1]);
                const __mmask64 isPositive = _mm512_movepi8_mask(u_);
                positiveBlue_ = block_.bluePositive_.Of(isPositive, u_);
                negativeBlue_ = block_.blueNegative_.Of(_knot_mask64(isPositive), u_);
                break;
            }
            case 4: {
                const Bytes upper = _mm512_permutex2var_epi8(sums_[0], block_.greenIndices_, sums_[1]);
                const Bytes halvesChanged = _mm512_shuffle_i64x2(v_, v_, 0x4E);
                green_ = _mm512_add_epi8(_mm512_sub_epi8(upper, halvesChanged), _mm512_set1_epi8(greenByteBias));
                break;
            }
            default: {
                const Bytes positive = _mm512_max_epi8(green_, _mm512_setzero_si512());
                const Bytes negative = _mm512_sub_epi8(positive, green_);
                prepared_.offsets.positiveLeft = _mm512_mask_blend_epi8(upperHalf, positiveBlue_, positive);
                prepared_.offsets.positiveRight = _mm512_mask_blend_epi8(upperHalf, positive, positiveBlue_);
                prepared_.offsets.negativeLeft = _mm512_mask_blend_epi8(upperHalf, negativeBlue_, negative);
                prepared_.offsets.negativeRight = _mm512_mask_blend_epi8(upperHalf, negative, negativeBlue_);
                break;
            }
        }
    }

    KERNEL_INLINE const Prepared<rows>& Result() const { return prepared_; }

  private:
    const Block& block_;
    BlockSource source_;
    Bytes u_, v_;
    Bytes pairs_[2];  // V and U alternating
    Bytes sums_[2];   // of green, 16 bits each
    Bytes green_;     // signed
    Bytes positiveBlue_, negativeBlue_;
    Prepared<rows> prepared_;
};

}  // namespace

constinit const Kernel avx512VbmiKernel = {"avx512vbmi", processor::HasAvx512Vbmi, VectorToBgr24<Block, avx2Kernel>,
                                           VectorToBgrPlanar<Block, avx2Kernel>, VectorGreyToBgr24<Block, avx2Kernel>};

}  // namespace image_transform::kernels
