#include "image_transform/colour_converter.h"

#include <limits>
#include <stdexcept>

#include "image_transform/kernels/kernel.h"

namespace image_transform {

namespace {

using kernels::BgrPlanes;
using kernels::I420Planes;

// The parts that the two converters share: everything except the routine that converts colour frames.
class Conversion {
  public:
    // Reallocates `output` when its size differs from the frame's.
    Conversion(const ImageData& in, ImageData& output)
        : source(in.data),
          size(in.size),
          pixels(std::uint64_t{in.width} * in.height),
          width(static_cast<std::int32_t>(in.width)),
          height(static_cast<std::int32_t>(in.height)) {
        if (in.width == 0 || in.height == 0) {
            throw std::runtime_error("Zero image size is not acceptable");
        }
        if (pixels > std::numeric_limits<std::uint32_t>::max() / 3) {
            throw std::runtime_error("Wrong image format");
        }
        if (output.width != in.width || output.height != in.height) {
            output = ImageData(in.width, in.height, static_cast<std::uint32_t>(3 * pixels));
        }
    }

    bool IsGrey() const { return size == pixels; }

    void ConvertGrey(const ImageData& output) const {
        Require(
            kernels::ActiveKernel().greyToBgr24(source, width, output.data, std::ptrdiff_t{3} * width, width, height));
    }

    I420Planes ColourPlanes() const {
        std::uint64_t chromaSize = 0;
        std::ptrdiff_t chromaStride = 0;
        if (size == 2 * pixels) {
            // 4:2:2 is read as 4:2:0 with a stride of two chroma rows, which skips the second row of each pair.
            chromaSize = pixels / 2;
            chromaStride = width;
        } else if (size == 6 * pixels / 4) {
            chromaSize = pixels / 4;
            chromaStride = width / 2;
        } else {
            throw std::runtime_error("Wrong image format");
        }
        if (source == nullptr) {
            throw std::runtime_error("Wrong image format");
        }
        const std::uint8_t* u = source + pixels;
        return {source, u, u + chromaSize, width, chromaStride, chromaStride};
    }

    static void Require(int status) {
        if (status != kernels::Status::Ok) {
            throw std::runtime_error("Wrong image format");
        }
    }

    const std::uint8_t* source;
    std::uint64_t size;
    std::uint64_t pixels;
    std::int32_t width;
    std::int32_t height;
};

}  // namespace

ConverterYUV2RGB::ConverterYUV2RGB() : blueFirst_(true) {}

void ConverterYUV2RGB::Transform(const ImageData& in, ImageData& out) {
    const Conversion conversion(in, output_);
    if (conversion.IsGrey()) {
        conversion.ConvertGrey(output_);
    } else {
        Conversion::Require(kernels::ActiveKernel().toBgr24(conversion.ColourPlanes(), output_.data,
                                                            std::ptrdiff_t{3} * conversion.width, conversion.width,
                                                            conversion.height));
    }
    out = output_;
}

ConverterYUV2RGBPlanar::ConverterYUV2RGBPlanar(bool blueFirst) : blueFirst_(blueFirst) {}

void ConverterYUV2RGBPlanar::Transform(const ImageData& in, ImageData& out) {
    const Conversion conversion(in, output_);
    if (conversion.IsGrey()) {
        conversion.ConvertGrey(output_);
    } else {
        const BgrPlanes planes{output_.data, output_.data + conversion.pixels, output_.data + 2 * conversion.pixels,
                               conversion.width};
        Conversion::Require(kernels::ActiveKernel().toBgrPlanar(conversion.ColourPlanes(), planes, conversion.width,
                                                                conversion.height));
    }
    out = output_;
}

}  // namespace image_transform
