/// The kernels for instruction sets whose byte shuffles stay within 16-byte lanes. Each lane of a register processes 32
/// neighbouring pixels; `Lanes` defines the width of a register and its operations.
#pragma once

#include "image_transform/kernels/block_loop.h"

namespace image_transform::kernels {
namespace {

constexpr std::ptrdiff_t lanePixels = 32;
constexpr std::ptrdiff_t laneBytes = 16;

// Shuffle indices: the source of each byte of a lane.
using LaneIndices = std::uint8_t[laneBytes];

// Sixteen pixels are three registers of output.
alignas(laneBytes) constexpr LaneIndices lumaIndices[3] = {
    {0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4, 5},
    {5, 5, 6, 6, 6, 7, 7, 7, 8, 8, 8, 9, 9, 9, 10, 10},
    {10, 11, 11, 11, 12, 12, 12, 13, 13, 13, 14, 14, 14, 15, 15, 15}};
// Their eight chroma pairs have four bytes each: blue, green, red, and one that is ignored. The first register uses
// pairs 0 to 3, the second 2 to 5, the third 4 to 7.
alignas(laneBytes) constexpr LaneIndices offsetIndices[3] = {{0, 1, 2, 0, 1, 2, 4, 5, 6, 4, 5, 6, 8, 9, 10, 8},
                                                             {1, 2, 4, 5, 6, 4, 5, 6, 8, 9, 10, 8, 9, 10, 12, 13},
                                                             {6, 4, 5, 6, 8, 9, 10, 8, 9, 10, 12, 13, 14, 12, 13, 14}};

// The offsets of each lane's sixteen chroma pairs: either the amounts to add to Y or those to subtract.
template <class Lanes>
struct ChannelOffsets {
    using Bytes = typename Lanes::Bytes;

    Bytes blue, green, red;

    // Writes pairs 4 n to 4 n + 3, four bytes each, to pairs[n].
    KERNEL_INLINE void Gather(Bytes (&pairs)[4]) const {
        const Bytes blueGreenLower = Lanes::UnpackLower8(blue, green);
        const Bytes blueGreenUpper = Lanes::UnpackUpper8(blue, green);
        const Bytes redLower = Lanes::UnpackLower8(red, red);
        const Bytes redUpper = Lanes::UnpackUpper8(red, red);
        pairs[0] = Lanes::UnpackLower16(blueGreenLower, redLower);
        pairs[1] = Lanes::UnpackUpper16(blueGreenLower, redLower);
        pairs[2] = Lanes::UnpackLower16(blueGreenUpper, redUpper);
        pairs[3] = Lanes::UnpackUpper16(blueGreenUpper, redUpper);
    }
};

template <class Lanes>
class LaneBlock {
    using Bytes = typename Lanes::Bytes;

  public:
    static constexpr std::ptrdiff_t pixels = lanePixels * Lanes::count;
    static constexpr std::ptrdiff_t streamAlignment = laneBytes;
    static constexpr int preparationSteps = 0;
    static constexpr bool triesSingleRows = false;

    struct Offsets {
        ChannelOffsets<Lanes> positive;
        ChannelOffsets<Lanes> negative;
    };
    template <int rows>
    using Prepared = Offsets;
    template <int rows>
    class Preparation;

    template <int rows, bool nonTemporal, class Following>
    KERNEL_INLINE void StoreInterleaved(const Offsets& offsets, const BlockSource& source, std::uint8_t* bgr,
                                        std::ptrdiff_t stride, Following&) const {
        Bytes positive[4];
        Bytes negative[4];
        offsets.positive.Gather(positive);
        offsets.negative.Gather(negative);
        KERNEL_UNROLL(2)
        for (int half = 0; half < 2; ++half) {
            const Bytes positiveParts[3] = {positive[2 * half],
                                            Lanes::JoinHalves(positive[2 * half], positive[2 * half + 1]),
                                            positive[2 * half + 1]};
            const Bytes negativeParts[3] = {negative[2 * half],
                                            Lanes::JoinHalves(negative[2 * half], negative[2 * half + 1]),
                                            negative[2 * half + 1]};
            Bytes positiveShuffled[3];
            Bytes negativeShuffled[3];
            KERNEL_UNROLL(3)
            for (int part = 0; part < 3; ++part) {
                positiveShuffled[part] = Lanes::Shuffle(positiveParts[part], offsetIndices_[part]);
                negativeShuffled[part] = Lanes::Shuffle(negativeParts[part], offsetIndices_[part]);
            }
            KERNEL_UNROLL(2)
            for (int row = 0; row < rows; ++row) {
                const Bytes luma = Lanes::LoadLanes(source.y + row * source.stride + laneBytes * half, lanePixels);
                Bytes result[3];
                KERNEL_UNROLL(3)
                for (int part = 0; part < 3; ++part) {
                    const Bytes sum =
                        Lanes::AddSaturated(Lanes::Shuffle(luma, lumaIndices_[part]), positiveShuffled[part]);
                    result[part] = Lanes::SubtractSaturated(sum, negativeShuffled[part]);
                }
                Lanes::template StoreLaneTriples<nonTemporal>(bgr + row * stride + 3 * laneBytes * half, 3 * lanePixels,
                                                              result);
            }
        }
    }

    template <int rows, bool nonTemporal, class Following>
    KERNEL_INLINE void StorePlanar(const Offsets& offsets, const BlockSource& source, const BgrPlanes& target,
                                   Following&) const {
        StorePlane<rows, nonTemporal>(offsets.positive.blue, offsets.negative.blue, source, target.blue, target.stride);
        StorePlane<rows, nonTemporal>(offsets.positive.green, offsets.negative.green, source, target.green,
                                      target.stride);
        StorePlane<rows, nonTemporal>(offsets.positive.red, offsets.negative.red, source, target.red, target.stride);
    }

    template <bool nonTemporal>
    KERNEL_INLINE void StoreGreyAsBgr(const std::uint8_t* grey, std::uint8_t* bgr) const {
        KERNEL_UNROLL(2)
        for (int half = 0; half < 2; ++half) {
            const Bytes luma = Lanes::LoadLanes(grey + laneBytes * half, lanePixels);
            KERNEL_UNROLL(3)
            for (int part = 0; part < 3; ++part) {
                Lanes::template StoreLanes<nonTemporal>(bgr + 3 * laneBytes * half + laneBytes * part, 3 * lanePixels,
                                                        Lanes::Shuffle(luma, lumaIndices_[part]));
            }
        }
    }

  private:
    template <int rows, bool nonTemporal>
    KERNEL_INLINE static void StorePlane(const Bytes& positive, const Bytes& negative, const BlockSource& source,
                                         std::uint8_t* plane, std::ptrdiff_t stride) {
        KERNEL_UNROLL(2)
        for (int half = 0; half < 2; ++half) {
            const Bytes positiveDuplicated =
                half == 0 ? Lanes::UnpackLower8(positive, positive) : Lanes::UnpackUpper8(positive, positive);
            const Bytes negativeDuplicated =
                half == 0 ? Lanes::UnpackLower8(negative, negative) : Lanes::UnpackUpper8(negative, negative);
            KERNEL_UNROLL(2)
            for (int row = 0; row < rows; ++row) {
                const Bytes luma = Lanes::LoadLanes(source.y + row * source.stride + laneBytes * half, lanePixels);
                const Bytes sum = Lanes::AddSaturated(luma, positiveDuplicated);
                Lanes::template StoreLanes<nonTemporal>(plane + row * stride + laneBytes * half, lanePixels,
                                                        Lanes::SubtractSaturated(sum, negativeDuplicated));
            }
        }
    }

    Bytes lumaIndices_[3] = {Lanes::BroadcastLane(lumaIndices[0]), Lanes::BroadcastLane(lumaIndices[1]),
                             Lanes::BroadcastLane(lumaIndices[2])};
    Bytes offsetIndices_[3] = {Lanes::BroadcastLane(offsetIndices[0]), Lanes::BroadcastLane(offsetIndices[1]),
                               Lanes::BroadcastLane(offsetIndices[2])};
};

template <class Lanes>
template <int rows>
class LaneBlock<Lanes>::Preparation {
  public:
    KERNEL_INLINE Preparation(const LaneBlock&, const BlockSource& source) {
        const Bytes u = Lanes::Load(source.u);
        const Bytes v = Lanes::Load(source.v);
        const Bytes zero = Lanes::Zero();
        const Bytes middle = Lanes::Broadcast16(128);

        const Bytes uLower = Lanes::Subtract16(Lanes::UnpackLower8(u, zero), middle);
        const Bytes uUpper = Lanes::Subtract16(Lanes::UnpackUpper8(u, zero), middle);
        const Bytes uFactor = Lanes::Broadcast16(blueFromUFraction);
        const Bytes blueLower = Lanes::Add16(Lanes::Add16(uLower, uLower), Lanes::MultiplyHigh16(uLower, uFactor));
        const Bytes blueUpper = Lanes::Add16(Lanes::Add16(uUpper, uUpper), Lanes::MultiplyHigh16(uUpper, uFactor));
        offsets_.positive.blue = Lanes::PackUnsigned(blueLower, blueUpper);
        offsets_.negative.blue =
            Lanes::PackUnsigned(Lanes::Subtract16(zero, blueLower), Lanes::Subtract16(zero, blueUpper));

        const Bytes vLower = Lanes::Subtract16(Lanes::UnpackLower8(v, zero), middle);
        const Bytes vUpper = Lanes::Subtract16(Lanes::UnpackUpper8(v, zero), middle);
        const Bytes vFactor = Lanes::Broadcast16(redFromVFraction);
        const Bytes redLower = Lanes::Add16(vLower, Lanes::MultiplyHigh16(vLower, vFactor));
        const Bytes redUpper = Lanes::Add16(vUpper, Lanes::MultiplyHigh16(vUpper, vFactor));
        offsets_.positive.red = Lanes::PackUnsigned(redLower, redUpper);
        offsets_.negative.red =
            Lanes::PackUnsigned(Lanes::Subtract16(zero, redLower), Lanes::Subtract16(zero, redUpper));

        const Bytes sums =
            Lanes::PackSigned(GreenSums(Lanes::UnpackLower8(v, u)), GreenSums(Lanes::UnpackUpper8(v, u)));
        const Bytes green = Lanes::Add8(Lanes::Subtract8(sums, v), Lanes::Broadcast8(greenByteBias));
        offsets_.positive.green = Lanes::MaxSigned8(green, zero);
        offsets_.negative.green = Lanes::Subtract8(offsets_.positive.green, green);
    }

    KERNEL_INLINE void Step(int) {}
    KERNEL_INLINE const Offsets& Result() const { return offsets_; }

  private:
    KERNEL_INLINE static Bytes GreenSums(const Bytes& pairs) {
        const Bytes lower = Lanes::Add16(Lanes::MultiplyAddPairs(pairs, Lanes::Broadcast16(greenLower)),
                                         Lanes::Broadcast16(greenLowerBias));
        const Bytes upper = Lanes::MultiplyAddPairs(pairs, Lanes::Broadcast16(greenUpper));
        return Lanes::UpperByte16(Lanes::Add16(upper, Lanes::UpperByte16(lower)));
    }

    Offsets offsets_;
};

}  // namespace
}  // namespace image_transform::kernels
