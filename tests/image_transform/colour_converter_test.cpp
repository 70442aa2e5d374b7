#include "image_transform/colour_converter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "tests/image_transform/yuv_formula.h"
#include "tests/support/guard_page.h"

namespace {

using image_transform::ConverterYUV2RGB;
using image_transform::ConverterYUV2RGBPlanar;
using image_transform::IImageTransform;
using image_transform::ImageData;
using test_support::GuardedBytes;
using yuv::RandomBytes;

using Bytes = std::vector<std::uint8_t>;

constexpr char wrongFormat[] = "Wrong image format";
constexpr char zeroSize[] = "Zero image size is not acceptable";

enum class Layout { Grey, I420, I422 };

std::uint32_t SizeOf(Layout layout, std::uint32_t width, std::uint32_t height) {
    const std::uint32_t pixels = width * height;
    return layout == Layout::Grey ? pixels : layout == Layout::I422 ? 2 * pixels : 6 * pixels / 4;
}

ImageData View(std::uint32_t width, std::uint32_t height, Bytes& bytes) {
    return ImageData(width, height, static_cast<std::uint32_t>(bytes.size()), bytes.data());
}

// A record that no constructor creates.
ImageData Raw(std::uint32_t width, std::uint32_t height, std::uint32_t size, std::uint8_t* data) {
    ImageData image;
    image.width = width;
    image.height = height;
    image.size = size;
    image.data = data;
    return image;
}

yuv::Bgr PixelOf(Layout layout, const std::uint8_t* frame, std::uint32_t width, std::uint32_t height, std::uint32_t row,
                 std::uint32_t column) {
    const std::uint32_t pixels = width * height;
    const std::uint8_t y = frame[row * width + column];
    if (layout == Layout::Grey) {
        return {y, y, y};
    }
    const bool full = layout == Layout::I422;
    const std::uint32_t chroma = row / 2 * (full ? width : width / 2) + column / 2;
    return yuv::Formula(y, frame[pixels + chroma], frame[pixels + (full ? pixels / 2 : pixels / 4) + chroma]);
}

// The expected output of a frame; bytes that are not written are `before`.
Bytes Expected(Layout layout, bool planar, const std::uint8_t* frame, std::uint32_t width, std::uint32_t height,
               std::uint8_t before = 0) {
    const std::uint32_t pixels = width * height;
    Bytes output(std::size_t{3} * pixels, before);
    const bool grey = layout == Layout::Grey;
    for (std::uint32_t row = 0; row < (grey ? height : height / 2 * 2); ++row) {
        for (std::uint32_t column = 0; column < (grey ? width : width / 2 * 2); ++column) {
            const yuv::Bgr pixel = PixelOf(layout, frame, width, height, row, column);
            const std::uint32_t place = row * width + column;
            const std::uint32_t step = planar && !grey ? pixels : 1;
            const std::uint32_t first = planar && !grey ? place : 3 * place;
            output[first] = pixel.blue;
            output[first + step] = pixel.green;
            output[first + 2 * step] = pixel.red;
        }
    }
    return output;
}

Bytes BytesOf(const ImageData& image) {
    return {image.data, image.data + image.size};
}

std::string RefusalOf(IImageTransform& step, const ImageData& in, ImageData& out) {
    try {
        step.Transform(in, out);
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no exception";
}

std::string RefusalOf(IImageTransform& step, const ImageData& in) {
    ImageData out;
    const std::string refusal = RefusalOf(step, in, out);
    EXPECT_EQ(out.data, nullptr) << "a refused frame has no output";
    EXPECT_EQ(out.width, 0u);
    return refusal;
}

/// Tests of both converters: the parameter is true for the planar one.
class BothConverters : public testing::TestWithParam<bool> {
  protected:
    static std::unique_ptr<IImageTransform> Make() {
        if (GetParam()) {
            return std::make_unique<ConverterYUV2RGBPlanar>(true);
        }
        return std::make_unique<ConverterYUV2RGB>();
    }

    std::unique_ptr<IImageTransform> converter = Make();
    bool planar = GetParam();
};

INSTANTIATE_TEST_SUITE_P(Converters, BothConverters, testing::Bool(), [](const testing::TestParamInfo<bool>& tested) {
    return std::string(tested.param ? "Planar" : "Interleaved");
});

TEST_P(BothConverters, FollowTheFormulaOnEveryTriple) {
    constexpr std::uint32_t width = 2048;
    constexpr std::uint32_t height = 512;
    constexpr std::uint32_t pixels = width * height;
    Bytes frame(SizeOf(Layout::I420, width, height));
    ImageData out;
    std::uint32_t block = 0;
    for (int number = 0; number < 16; ++number) {
        for (std::uint32_t chroma = 0; chroma < pixels / 4; ++chroma, ++block) {
            frame[pixels + chroma] = static_cast<std::uint8_t>(block >> 14);
            frame[pixels + pixels / 4 + chroma] = static_cast<std::uint8_t>(block >> 6);
            const std::uint32_t corner = chroma / (width / 2) * 2 * width + chroma % (width / 2) * 2;
            const std::uint32_t luma = block % 64 * 4;
            frame[corner] = static_cast<std::uint8_t>(luma);
            frame[corner + 1] = static_cast<std::uint8_t>(luma + 1);
            frame[corner + width] = static_cast<std::uint8_t>(luma + 2);
            frame[corner + width + 1] = static_cast<std::uint8_t>(luma + 3);
        }
        converter->Transform(View(width, height, frame), out);
        ASSERT_EQ(out.size, 3 * pixels);
        const Bytes expected = Expected(Layout::I420, planar, frame.data(), width, height);
        ASSERT_TRUE(std::equal(expected.begin(), expected.end(), out.data)) << "frame " << number;
    }
    EXPECT_EQ(block, std::uint32_t{1} << 22);
}

TEST_P(BothConverters, ConvertOrRefuseEverySmallSize) {
    for (std::uint32_t width = 1; width <= 33; ++width) {
        for (std::uint32_t height = 1; height <= 33; ++height) {
            for (const Layout layout : {Layout::Grey, Layout::I420, Layout::I422}) {
                if (layout == Layout::I420 && width * height == 1) {
                    continue;  // has the size of a grey frame, and is treated as one
                }
                const std::string name = std::to_string(width) + " x " + std::to_string(height) + ", layout " +
                                         std::to_string(static_cast<int>(layout));

                // A grey frame first, so that its output shows whether a refused frame writes anything.
                const auto fresh = Make();
                Bytes grey(std::size_t{width} * height, 77);
                ImageData before;
                fresh->Transform(View(width, height, grey), before);

                // The frame ends at a guard page, which detects a read past its end.
                GuardedBytes frame(RandomBytes(SizeOf(layout, width, height), width * 64 + height));
                const ImageData in(width, height, static_cast<std::uint32_t>(frame.size()), frame.data());
                const Bytes expected = Expected(layout, planar, frame.data(), width, height, 77);
                ImageData out;
                if (layout == Layout::Grey || (width % 2 == 0 && height % 2 == 0)) {
                    fresh->Transform(in, out);
                    EXPECT_EQ(out.width, width);
                    EXPECT_EQ(out.height, height);
                    EXPECT_EQ(out.size, 3 * width * height);
                    ASSERT_EQ(BytesOf(out), expected) << name;
                } else {
                    ASSERT_EQ(RefusalOf(*fresh, in, out), wrongFormat) << name;
                    EXPECT_EQ(out.data, nullptr);
                }
                ASSERT_EQ(BytesOf(before), expected) << name;
            }
        }
    }
}

TEST_P(BothConverters, FindTheChromaOfATinyFrame) {
    // U begins at byte 8, V at byte 10.
    Bytes frame = {16, 32, 48, 64, 80, 96, 112, 128, 90, 170, 60, 200};
    ImageData out;
    converter->Transform(View(4, 2, frame), out);
    for (std::uint32_t row = 0; row < 2; ++row) {
        for (std::uint32_t column = 0; column < 4; ++column) {
            const yuv::Bgr pixel = yuv::Formula(frame[row * 4 + column], column < 2 ? 90 : 170, column < 2 ? 60 : 200);
            const std::uint32_t place = row * 4 + column;
            EXPECT_EQ(out.data[planar ? place : 3 * place], pixel.blue);
            EXPECT_EQ(out.data[planar ? 8 + place : 3 * place + 1], pixel.green);
            EXPECT_EQ(out.data[planar ? 16 + place : 3 * place + 2], pixel.red);
        }
    }
}

TEST_P(BothConverters, ProduceTheseColours) {
    // Pure luma; strong red; strong blue.
    const struct {
        std::uint8_t y, u, v;
        yuv::Bgr colour;
    } cases[] = {{128, 128, 128, {128, 128, 128}}, {0, 128, 128, {0, 0, 0}},        {255, 128, 128, {255, 255, 255}},
                 {100, 128, 255, {100, 26, 244}},  {100, 255, 128, {255, 49, 100}}, {100, 0, 0, {0, 224, 0}}};
    for (const auto& sample : cases) {
        Bytes frame = {sample.y, sample.y, sample.y, sample.y, sample.u, sample.v};
        ImageData out;
        converter->Transform(View(2, 2, frame), out);
        EXPECT_EQ(int{out.data[0]}, int{sample.colour.blue});
        EXPECT_EQ(int{out.data[planar ? 4 : 1]}, int{sample.colour.green});
        EXPECT_EQ(int{out.data[planar ? 8 : 2]}, int{sample.colour.red});
    }
}

TEST_P(BothConverters, UseTheFirstChromaRowOfEachPairOf422) {
    constexpr std::uint32_t width = 12;
    constexpr std::uint32_t height = 8;
    constexpr std::uint32_t pixels = width * height;
    Bytes full = RandomBytes(2 * pixels, 5);
    Bytes half(full.begin(), full.begin() + pixels);
    for (const std::uint32_t plane : {pixels, pixels + pixels / 2}) {
        for (std::uint32_t row = 0; row < height; row += 2) {
            const auto from = full.begin() + plane + row * width / 2;
            half.insert(half.end(), from, from + width / 2);
        }
    }
    ASSERT_EQ(half.size(), pixels * 3 / 2);
    ImageData out;
    converter->Transform(View(width, height, full), out);
    const Bytes first = BytesOf(out);
    converter->Transform(View(width, height, half), out);
    EXPECT_EQ(BytesOf(out), first);

    for (const std::uint32_t plane : {pixels, pixels + pixels / 2}) {
        for (std::uint32_t row = 1; row < height; row += 2) {
            std::fill_n(full.begin() + plane + row * width / 2, width / 2, std::uint8_t{1});
        }
    }
    converter->Transform(View(width, height, full), out);
    EXPECT_EQ(BytesOf(out), first) << "the second rows are not used";
}

TEST_P(BothConverters, TreatOneByteForOnePixelAsGrey) {
    Bytes frame = {123};
    ImageData out;
    converter->Transform(View(1, 1, frame), out);
    EXPECT_EQ(BytesOf(out), (Bytes{123, 123, 123}));
}

TEST_P(BothConverters, ConvertGreyFramesOfOddSizes) {
    Bytes frame = RandomBytes(20, 9);
    ImageData out;
    converter->Transform(View(5, 4, frame), out);
    Bytes expected;
    for (const std::uint8_t y : frame) {
        expected.insert(expected.end(), 3, y);
    }
    EXPECT_EQ(BytesOf(out), expected) << "interleaved, also from the planar converter";
}

TEST_P(BothConverters, RefuseColourFramesOfOddSizes) {
    Bytes frame(30);
    EXPECT_EQ(RefusalOf(*converter, View(5, 4, frame)), wrongFormat);
    EXPECT_EQ(RefusalOf(*converter, View(4, 5, frame)), wrongFormat);
    Bytes full(40);
    EXPECT_EQ(RefusalOf(*converter, View(5, 4, full)), wrongFormat);
    Bytes tiny(2);
    EXPECT_EQ(RefusalOf(*converter, View(1, 1, tiny)), wrongFormat);
}

TEST_P(BothConverters, RefuseEverySizeOfNoLayout) {
    Bytes frame(200);
    for (std::uint32_t size = 1; size <= 200; ++size) {
        ImageData out;
        const ImageData in(8, 6, size, frame.data());
        const bool known = size == 48 || size == 96 || size == 72;
        EXPECT_EQ(RefusalOf(*converter, in, out), known ? "no exception" : wrongFormat) << size;
    }
}

TEST_P(BothConverters, RefuseNullData) {
    for (const std::uint32_t size : {8u, 12u, 16u}) {
        EXPECT_EQ(RefusalOf(*converter, ImageData(4, 2, size, nullptr)), wrongFormat) << size;
    }
}

TEST_P(BothConverters, RefuseAZeroWidthOrHeight) {
    Bytes frame(12);
    EXPECT_EQ(RefusalOf(*converter, Raw(0, 2, 12, frame.data())), zeroSize);
    EXPECT_EQ(RefusalOf(*converter, Raw(4, 0, 12, frame.data())), zeroSize);
    // Checked before the layout, and before an output that is too large.
    EXPECT_EQ(RefusalOf(*converter, Raw(0, 0xffffffff, 5, nullptr)), zeroSize);
}

TEST_P(BothConverters, RefuseAFrameWithoutBytes) {
    ImageData out;
    EXPECT_EQ(RefusalOf(*converter, Raw(4, 2, 0, nullptr), out), wrongFormat);
    EXPECT_EQ(out.data, nullptr);
}

TEST_P(BothConverters, RefuseAnOutputBeyondThirtyTwoBitsBeforeAnythingElse) {
    Bytes small(6, 50);
    ImageData out;
    converter->Transform(View(2, 2, small), out);
    const Bytes before = BytesOf(out);
    const std::uint8_t* const storage = out.storage.get();

    const struct {
        std::uint32_t width, height, size;
    } frames[] = {
        {65536, 32768, 0x80000000},       // luminance only; three times that is 2^31 in 32 bits
        {37838, 37838, 37838u * 37838u},  // just beyond
        {1431655766, 1, 1431655766},      // 2^32 + 2 bytes
        {0xffffffff, 0xffffffff, 1},      // the number of pixels is 1 in 32 bits
        {65536, 65537, 65536},            // 65536 pixels in 32 bits
        {0x80000000, 2, 4},               // no pixels in 32 bits
    };
    for (const auto& frame : frames) {
        EXPECT_EQ(RefusalOf(*converter, Raw(frame.width, frame.height, frame.size, small.data())), wrongFormat)
            << frame.width << " x " << frame.height;
    }

    EXPECT_EQ(BytesOf(out), before);
    converter->Transform(View(2, 2, small), out);
    EXPECT_EQ(out.storage.get(), storage) << "the buffer is unchanged";
}

TEST_P(BothConverters, ReuseTheBufferForTheSameSize) {
    Bytes first(12, 10);
    Bytes second(12, 200);
    ImageData one;
    ImageData other;
    converter->Transform(View(4, 2, first), one);
    const Bytes pixels = BytesOf(one);
    converter->Transform(View(4, 2, second), other);
    EXPECT_EQ(one.storage.get(), other.storage.get());
    EXPECT_EQ(one.data, one.storage.get());
    EXPECT_EQ(one.storage.use_count(), 3) << "both records and the converter";
    EXPECT_NE(BytesOf(one), pixels) << "the second frame is in the first one's record";
    // Another layout of the same size needs no new buffer.
    Bytes grey(8, 30);
    ImageData third;
    converter->Transform(View(4, 2, grey), third);
    EXPECT_EQ(third.storage.get(), one.storage.get());
}

TEST_P(BothConverters, AllocateANewBufferForAnotherSize) {
    Bytes frame = RandomBytes(12, 3);
    ImageData one;
    converter->Transform(View(4, 2, frame), one);
    const Bytes pixels = BytesOf(one);
    ImageData other;
    converter->Transform(View(2, 4, frame), other);  // as many bytes, another shape
    EXPECT_NE(one.storage.get(), other.storage.get());
    EXPECT_EQ(one.storage.use_count(), 1) << "the converter has released the old one";
    EXPECT_EQ(BytesOf(one), pixels);
    ImageData again;
    converter->Transform(View(4, 2, frame), again);
    EXPECT_NE(again.storage.get(), one.storage.get());
}

TEST_P(BothConverters, ReplaceTheBufferBeforeTheyCheckTheLayout) {
    Bytes frame(12, 10);
    ImageData out;
    converter->Transform(View(4, 2, frame), out);
    EXPECT_EQ(out.storage.use_count(), 2);
    EXPECT_EQ(RefusalOf(*converter, ImageData(6, 2, 13, frame.data())), wrongFormat);
    EXPECT_EQ(out.storage.use_count(), 1);
}

TEST_P(BothConverters, KeepTheirOutputWhenAFrameIsRefused) {
    Bytes frame = RandomBytes(12, 3);
    ImageData out;
    converter->Transform(View(4, 2, frame), out);
    const Bytes pixels = BytesOf(out);
    const ImageData kept = out;
    EXPECT_EQ(RefusalOf(*converter, ImageData(4, 2, 13, frame.data()), out), wrongFormat);
    EXPECT_EQ(out.data, kept.data);
    EXPECT_EQ(BytesOf(out), pixels);
    converter->Transform(View(4, 2, frame), out);
    EXPECT_EQ(out.storage.get(), kept.storage.get());
}

TEST_P(BothConverters, AcceptOneRecordAsInputAndOutput) {
    Bytes frame = RandomBytes(6 * 4 * 3 / 2, 11);
    const Bytes expected = Expected(Layout::I420, planar, frame.data(), 6, 4);
    ImageData image = View(6, 4, frame);
    converter->Transform(image, image);
    EXPECT_EQ(BytesOf(image), expected);

    // Also when the record is the only owner of the frame.
    ImageData owner(6, 4, static_cast<std::uint32_t>(frame.size()));
    std::copy(frame.begin(), frame.end(), owner.data);
    converter->Transform(owner, owner);
    EXPECT_EQ(BytesOf(owner), expected);
}

TEST_P(BothConverters, DoNotChangeTheFrame) {
    Bytes frame = RandomBytes(12, 3);
    const Bytes before = frame;
    ImageData out;
    converter->Transform(View(4, 2, frame), out);
    EXPECT_EQ(frame, before);
}

TEST_P(BothConverters, TheirOutputOutlivesThem) {
    Bytes frame = RandomBytes(12, 3);
    ImageData out;
    converter->Transform(View(4, 2, frame), out);
    const Bytes pixels = BytesOf(out);
    converter.reset();
    EXPECT_EQ(BytesOf(out), pixels);
    EXPECT_EQ(out.storage.use_count(), 1);
}

TEST(ConverterYUV2RGBPlanar, WritesTheSamePlanesForEitherFlagValue) {
    Bytes frame = RandomBytes(8 * 6 * 3 / 2, 21);
    ConverterYUV2RGBPlanar blueFirst(true);
    ConverterYUV2RGBPlanar redFirst(false);
    ImageData one;
    ImageData other;
    blueFirst.Transform(View(8, 6, frame), one);
    redFirst.Transform(View(8, 6, frame), other);
    EXPECT_EQ(BytesOf(one), Expected(Layout::I420, true, frame.data(), 8, 6));
    EXPECT_EQ(BytesOf(other), BytesOf(one));
}

TEST(Converters, ShareNothingWithOneAnother) {
    Bytes frame(12, 10);
    ConverterYUV2RGB first;
    ConverterYUV2RGB second;
    ImageData one;
    ImageData other;
    first.Transform(View(4, 2, frame), one);
    second.Transform(View(4, 2, frame), other);
    EXPECT_NE(one.storage.get(), other.storage.get());
}

}  // namespace
