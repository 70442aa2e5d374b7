/// The kernels for instruction sets whose byte shuffles stay within 16-byte lanes. Each lane of a register processes 32
/// neighbouring pixels; `Lanes` defines the width of a register and its operations.
#pragma once

#include "image_transform/kernels/block_loop.h"

namespace image_transform::kernels {
namespace {

constexpr std::ptrdiff_t lanePixels = 32;
constexpr std::ptrdiff_t laneBytes = 16;

// Shuffle indices: the source of each byte of a lane.
using LanePlaces = std::uint8_t[laneBytes];

// Sixteen pixels are three registers of output.
alignas(laneBytes) constexpr LanePlaces lumaPlaces[3] = {
    {0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4, 5},
    {5, 5, 6, 6, 6, 7, 7, 7, 8, 8, 8, 9, 9, 9, 10, 10},
    {10, 11, 11, 11, 12, 12, 12, 13, 13, 13, 14, 14, 14, 15, 15, 15}};
// Their eight chroma pairs have four bytes each: blue, green, red, and one that is ignored. The first register uses
// pairs 0 to 3, the second 2 to 5, the third 4 to 7.
alignas(laneBytes) constexpr LanePlaces offsetPlaces[3] = {{0, 1, 2, 0, 1, 2, 4, 5, 6, 4, 5, 6, 8, 9, 10, 8},
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

    struct Offsets {
        ChannelOffsets<Lanes> more;
        ChannelOffsets<Lanes> less;
    };
    class Preparation;

    template <bool nonTemporal, class Following>
    KERNEL_INLINE void Interleave(const Offsets& offsets, const std::uint8_t* y, std::ptrdiff_t yStride,
                                  std::uint8_t* bgr, std::ptrdiff_t step, Following&) const {
        Bytes more[4];
        Bytes less[4];
        offsets.more.Gather(more);
        offsets.less.Gather(less);
        KERNEL_UNROLL(2)
        for (int half = 0; half < 2; ++half) {
            const Bytes moreOf[3] = {more[2 * half], Lanes::Middle(more[2 * half], more[2 * half + 1]),
                                     more[2 * half + 1]};
            const Bytes lessOf[3] = {less[2 * half], Lanes::Middle(less[2 * half], less[2 * half + 1]),
                                     less[2 * half + 1]};
            Bytes moreHere[3];
            Bytes lessHere[3];
            KERNEL_UNROLL(3)
            for (int part = 0; part < 3; ++part) {
                moreHere[part] = Lanes::Shuffle(moreOf[part], offsetsAt_[part]);
                lessHere[part] = Lanes::Shuffle(lessOf[part], offsetsAt_[part]);
            }
            KERNEL_UNROLL(2)
            for (int row = 0; row < 2; ++row) {
                const Bytes luma = Lanes::LoadApart(y + row * yStride + laneBytes * half, lanePixels);
                Bytes result[3];
                KERNEL_UNROLL(3)
                for (int part = 0; part < 3; ++part) {
                    const Bytes sum = Lanes::AddSaturated(Lanes::Shuffle(luma, lumaAt_[part]), moreHere[part]);
                    result[part] = Lanes::SubtractSaturated(sum, lessHere[part]);
                }
                Lanes::template StoreThreeApart<nonTemporal>(bgr + row * step + 3 * laneBytes * half, 3 * lanePixels,
                                                             result);
            }
        }
    }

    template <class Following>
    KERNEL_INLINE void Separate(const Offsets& offsets, const std::uint8_t* y, std::ptrdiff_t yStride,
                                const BgrPlanes& target, Following&) const {
        SeparateOne(offsets.more.blue, offsets.less.blue, y, yStride, target.blue, target.step);
        SeparateOne(offsets.more.green, offsets.less.green, y, yStride, target.green, target.step);
        SeparateOne(offsets.more.red, offsets.less.red, y, yStride, target.red, target.step);
    }

    KERNEL_INLINE void SpreadGrey(const std::uint8_t* grey, std::uint8_t* bgr) const {
        KERNEL_UNROLL(2)
        for (int half = 0; half < 2; ++half) {
            const Bytes luma = Lanes::LoadApart(grey + laneBytes * half, lanePixels);
            KERNEL_UNROLL(3)
            for (int part = 0; part < 3; ++part) {
                Lanes::template StoreApart<false>(bgr + 3 * laneBytes * half + laneBytes * part, 3 * lanePixels,
                                                  Lanes::Shuffle(luma, lumaAt_[part]));
            }
        }
    }

  private:
    KERNEL_INLINE static void SeparateOne(const Bytes& more, const Bytes& less, const std::uint8_t* y,
                                          std::ptrdiff_t yStride, std::uint8_t* plane, std::ptrdiff_t step) {
        KERNEL_UNROLL(2)
        for (int half = 0; half < 2; ++half) {
            const Bytes moreTwice = half == 0 ? Lanes::UnpackLower8(more, more) : Lanes::UnpackUpper8(more, more);
            const Bytes lessTwice = half == 0 ? Lanes::UnpackLower8(less, less) : Lanes::UnpackUpper8(less, less);
            KERNEL_UNROLL(2)
            for (int row = 0; row < 2; ++row) {
                const Bytes luma = Lanes::LoadApart(y + row * yStride + laneBytes * half, lanePixels);
                const Bytes sum = Lanes::AddSaturated(luma, moreTwice);
                Lanes::template StoreApart<false>(plane + row * step + laneBytes * half, lanePixels,
                                                  Lanes::SubtractSaturated(sum, lessTwice));
            }
        }
    }

    Bytes lumaAt_[3] = {Lanes::InEveryLane(lumaPlaces[0]), Lanes::InEveryLane(lumaPlaces[1]),
                        Lanes::InEveryLane(lumaPlaces[2])};
    Bytes offsetsAt_[3] = {Lanes::InEveryLane(offsetPlaces[0]), Lanes::InEveryLane(offsetPlaces[1]),
                           Lanes::InEveryLane(offsetPlaces[2])};
};

template <class Lanes>
class LaneBlock<Lanes>::Preparation {
  public:
    KERNEL_INLINE Preparation(const LaneBlock&, const std::uint8_t* chromaU, const std::uint8_t* chromaV) {
        const Bytes u = Lanes::Load(chromaU);
        const Bytes v = Lanes::Load(chromaV);
        const Bytes zero = Lanes::Zero();
        const Bytes middle = Lanes::Every16(128);

        const Bytes uLower = Lanes::Subtract16(Lanes::UnpackLower8(u, zero), middle);
        const Bytes uUpper = Lanes::Subtract16(Lanes::UnpackUpper8(u, zero), middle);
        const Bytes ofU = Lanes::Every16(blueBeyond2U);
        const Bytes blueLower = Lanes::Add16(Lanes::Add16(uLower, uLower), Lanes::MultiplyUpper16(uLower, ofU));
        const Bytes blueUpper = Lanes::Add16(Lanes::Add16(uUpper, uUpper), Lanes::MultiplyUpper16(uUpper, ofU));
        offsets_.more.blue = Lanes::PackUnsigned(blueLower, blueUpper);
        offsets_.less.blue =
            Lanes::PackUnsigned(Lanes::Subtract16(zero, blueLower), Lanes::Subtract16(zero, blueUpper));

        const Bytes vLower = Lanes::Subtract16(Lanes::UnpackLower8(v, zero), middle);
        const Bytes vUpper = Lanes::Subtract16(Lanes::UnpackUpper8(v, zero), middle);
        const Bytes ofV = Lanes::Every16(redBeyondV);
        const Bytes redLower = Lanes::Add16(vLower, Lanes::MultiplyUpper16(vLower, ofV));
        const Bytes redUpper = Lanes::Add16(vUpper, Lanes::MultiplyUpper16(vUpper, ofV));
        offsets_.more.red = Lanes::PackUnsigned(redLower, redUpper);
        offsets_.less.red = Lanes::PackUnsigned(Lanes::Subtract16(zero, redLower), Lanes::Subtract16(zero, redUpper));

        const Bytes sums =
            Lanes::PackSigned(GreenSums(Lanes::UnpackLower8(v, u)), GreenSums(Lanes::UnpackUpper8(v, u)));
        const Bytes green = Lanes::Add8(Lanes::Subtract8(sums, v), Lanes::Every8(greenByteBias));
        offsets_.more.green = Lanes::LargerSigned8(green, zero);
        offsets_.less.green = Lanes::Subtract8(offsets_.more.green, green);
    }

    KERNEL_INLINE void Step(int) {}
    KERNEL_INLINE const Offsets& Result() const { return offsets_; }

  private:
    KERNEL_INLINE static Bytes GreenSums(const Bytes& pairs) {
        const Bytes lower =
            Lanes::Add16(Lanes::MultiplyPairs(pairs, Lanes::Every16(greenLower)), Lanes::Every16(greenLowerBias));
        const Bytes upper = Lanes::MultiplyPairs(pairs, Lanes::Every16(greenUpper));
        return Lanes::UpperByte16(Lanes::Add16(upper, Lanes::UpperByte16(lower)));
    }

    Offsets offsets_;
};

}  // namespace
}  // namespace image_transform::kernels
