#include "image_transform/image_transformer.h"

#include <gtest/gtest.h>

#include <boost/gil.hpp>
#include <boost/make_shared.hpp>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "image_transform/colour_converter.h"
#include "image_transform/image_deinterlacer.h"

namespace {

using image_transform::IImageTransform;
using image_transform::ImageData;
using image_transform::ImageTransformer;

/// Records the input width, and returns its own width.
struct Marker final : IImageTransform {
    Marker(std::uint32_t ownWidth, std::vector<std::uint32_t>& widths) : width(ownWidth), seen(widths) {}

    void Transform(const ImageData& in, ImageData& out) override {
        seen.push_back(in.width);
        out.width = width;
    }

    std::uint32_t width;
    std::vector<std::uint32_t>& seen;
};

struct Refuser final : IImageTransform {
    void Transform(const ImageData&, ImageData&) override { throw std::runtime_error("refused"); }
};

TEST(ImageTransformer, WithoutStepsLeavesTheOutputUntouched) {
    ImageTransformer chain;
    std::uint8_t byte = 7;
    const ImageData in(1, 1, 1, &byte);
    ImageData out;
    chain.Transform(in, out);
    EXPECT_EQ(out.width, 0u);
    EXPECT_EQ(out.data, nullptr);
    EXPECT_TRUE(chain.Steps().empty());
}

TEST(ImageTransformer, RunsItsStepsInOrderEachOnTheResultBefore) {
    ImageTransformer chain;
    std::vector<std::uint32_t> seen;
    for (const std::uint32_t width : {10u, 20u, 30u}) {
        chain.Append(boost::make_shared<Marker>(width, seen));
    }
    EXPECT_EQ(chain.Steps().size(), 3u);
    ImageData in;
    in.width = 5;
    ImageData out;
    out.width = 99;
    chain.Transform(in, out);
    EXPECT_EQ(seen, (std::vector<std::uint32_t>{5, 10, 20}));
    EXPECT_EQ(out.width, 30u);
    EXPECT_EQ(in.width, 5u);
}

TEST(ImageTransformer, RunsOneStepTwiceWhenItIsAddedTwice) {
    ImageTransformer chain;
    std::vector<std::uint32_t> seen;
    const auto step = boost::make_shared<Marker>(10, seen);
    chain.Append(step);
    chain.Append(step);
    ImageData image;
    image.width = 5;
    chain.Transform(image, image);
    EXPECT_EQ(seen, (std::vector<std::uint32_t>{5, 10}));
}

TEST(ImageTransformer, ClearRemovesEveryStep) {
    ImageTransformer chain;
    std::vector<std::uint32_t> seen;
    const auto step = boost::make_shared<Marker>(10, seen);
    chain.Append(step);
    EXPECT_EQ(step.use_count(), 2);
    chain.Clear();
    EXPECT_EQ(step.use_count(), 1);
    ImageData image;
    image.width = 5;
    chain.Transform(image, image);
    EXPECT_EQ(image.width, 5u);
}

TEST(ImageTransformer, AnExceptionEndsTheChain) {
    ImageTransformer chain;
    std::vector<std::uint32_t> seen;
    chain.Append(boost::make_shared<Marker>(10, seen));
    chain.Append(boost::make_shared<Refuser>());
    chain.Append(boost::make_shared<Marker>(20, seen));
    ImageData image;
    EXPECT_THROW(chain.Transform(image, image), std::exception);
    EXPECT_EQ(seen.size(), 1u);
    EXPECT_EQ(image.width, 10u);
}

TEST(ImageTransformer, ConvertsTheFirstStepsOutputInPlace) {
    ImageTransformer chain;
    using Deinterlacer = image_transform::ImageDeinterlacer<boost::gil::gray8_view_t>;
    chain.Append(boost::make_shared<Deinterlacer>(0, 0, false));
    chain.Append(boost::make_shared<image_transform::ConverterYUV2RGB>());
    for (int frame = 0; frame < 3; ++frame) {
        const auto shade = static_cast<std::uint8_t>(10 * frame);
        std::vector<std::uint8_t> bytes = {shade, 2, 3, 4, 5, 6, 7, 8, 9};
        ImageData image(3, 3, 9, bytes.data());
        chain.Transform(image, image);
        EXPECT_EQ(image.width, 3u);
        EXPECT_EQ(image.height, 2u);
        EXPECT_EQ(std::vector<std::uint8_t>(image.data, image.data + image.size),
                  (std::vector<std::uint8_t>{shade, shade, shade, 2, 2, 2, 3, 3, 3, 7, 7, 7, 8, 8, 8, 9, 9, 9}));
    }
}

}  // namespace
