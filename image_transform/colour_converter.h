/// From planar YUV to blue, green, red, 8 bits each.
#pragma once

#include "image_transform/image_data.h"

namespace image_transform {

/// Interleaved output (Bgr24): 3 bytes a pixel, row step 3 x width, rows top to bottom.
///
/// The input's layout follows from its size, n being width x height: n is luminance alone, 2n planar 4:2:2, 3n/2 planar
/// 4:2:0. Anything else, a colour frame of odd width or height, and an output of more than 32-bit size throw
/// std::exception with "Wrong image format"; a zero width or height throws "Zero image size is not acceptable".
/// `out` shares the converter's own buffer, which the next conversion overwrites. One thread at a time.
class ConverterYUV2RGB final : public IImageTransform {
  public:
    ConverterYUV2RGB();
    void Transform(const ImageData& in, ImageData& out) override;

  private:
    [[maybe_unused]] bool blueFirst_;
    ImageData output_;
};

/// Planar output: a blue, a green and a red plane of width x height bytes each, one after the other; luminance alone
/// comes out interleaved. Otherwise as ConverterYUV2RGB.
class ConverterYUV2RGBPlanar final : public IImageTransform {
  public:
    /// The planes stand in the same order whatever the flag says.
    explicit ConverterYUV2RGBPlanar(bool blueFirst);
    void Transform(const ImageData& in, ImageData& out) override;

  private:
    [[maybe_unused]] bool blueFirst_;
    ImageData output_;
};

}  // namespace image_transform
