/// A deinterlacer that keeps one field of an 8-bit grey frame.
#pragma once

#include <boost/gil.hpp>
#include <cstdint>
#include <stdexcept>

#include "image_transform/image_data.h"

namespace image_transform {

/// Copies rows 0, 2, 4, ... of the frame's first plane (stride = width) without blending; with `halveWidth`, only
/// columns 0, 2, 4, ... of them. Output width and height are rounded up. A frame below the minimum size, in pixels,
/// leaves `out` unchanged. `out` shares the step's buffer, which the next frame overwrites. One thread at a time.
template <class View>
class ImageDeinterlacer final : public IImageTransform {
  public:
    ImageDeinterlacer(std::uint32_t minimumWidth, std::uint32_t minimumHeight, bool halveWidth)
        : minimumWidth_(minimumWidth), minimumHeight_(minimumHeight), halveWidth_(halveWidth) {}

    /// Throws std::exception with "ImageDeinterlacer error: empty frame!" when the output would be empty, and with
    /// "Wrong image format" when the data is null or smaller than width x height bytes.
    void Transform(const ImageData& in, ImageData& out) override {
        if (in.width < minimumWidth_ || in.height < minimumHeight_) {
            return;
        }
        const std::uint32_t columnStep = halveWidth_ ? 2 : 1;
        const std::uint64_t width = (std::uint64_t{in.width} + columnStep - 1) / columnStep;
        const std::uint64_t height = (std::uint64_t{in.height} + 1) / 2;
        if (width * height == 0) {
            throw std::runtime_error("ImageDeinterlacer error: empty frame!");
        }
        // Stricter than the copy needs, but without the check a frame with too few bytes would be read past its end.
        if (in.data == nullptr || in.size < std::uint64_t{in.width} * in.height) {
            throw std::runtime_error("Wrong image format");
        }
        if (output_.width != width || output_.height != height) {
            output_ = ImageData(static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                                static_cast<std::uint32_t>(width * height));
        }
        const auto frame = ViewOf(in.width, in.height, in.data);
        boost::gil::copy_pixels(boost::gil::subsampled_view(frame, columnStep, 2),
                                ViewOf(output_.width, output_.height, output_.data));
        out = output_;
    }

  private:
    static View ViewOf(std::uint32_t width, std::uint32_t height, std::uint8_t* data) {
        using Pixel = typename View::value_type;
        return boost::gil::interleaved_view(width, height, reinterpret_cast<Pixel*>(data),
                                            static_cast<std::ptrdiff_t>(width));
    }

    ImageData output_;
    std::uint32_t minimumWidth_;
    std::uint32_t minimumHeight_;
    bool halveWidth_;
};

}  // namespace image_transform
