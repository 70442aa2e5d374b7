/// Conversion from planar YUV to blue, green, red with 8 bits each. The formula and its source are in
/// kernels/kernel.h.
#pragma once

#include "image_transform/image_data.h"

namespace image_transform {

/// Converts to interleaved pixels (Bgr24): 3 bytes per pixel, stride 3 x width, rows top to bottom.
///
/// The size of the input in bytes selects its layout. With n = width x height, n is luma only (converted to grey), 2n
/// is planar 4:2:2, of which only the even chroma rows are used, and 3n/2 is planar 4:2:0 (I420). The planes Y, U, V
/// follow each other without padding. Throws std::exception with "Zero image size is not acceptable" when width or
/// height is 0, and with "Wrong image format" for any other size, for a colour frame of odd width or height, for null
/// data, and when the output's size does not fit 32 bits. `out` shares the converter's buffer, which the next
/// conversion overwrites. One thread at a time.
class ConverterYUV2RGB final : public IImageTransform {
  public:
    ConverterYUV2RGB();
    void Transform(const ImageData& in, ImageData& out) override;

  private:
    [[maybe_unused]] bool blueFirst_;
    ImageData output_;
};

/// Converts to a blue, a green and a red plane of width x height bytes each, one after the other. Luma-only input is
/// converted to interleaved pixels. Otherwise like ConverterYUV2RGB.
class ConverterYUV2RGBPlanar final : public IImageTransform {
  public:
    /// `blueFirst` is ignored: the order of the planes is always blue, green, red.
    explicit ConverterYUV2RGBPlanar(bool blueFirst);
    void Transform(const ImageData& in, ImageData& out) override;

  private:
    [[maybe_unused]] bool blueFirst_;
    ImageData output_;
};

}  // namespace image_transform
