#include "image_transform/image_deinterlacer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/gil.hpp>
#include <exception>
#include <string>
#include <vector>

#include "tests/image_transform/yuv_formula.h"
#include "tests/support/guard_page.h"

namespace {

using image_transform::ImageData;
using test_support::GuardedBytes;
using Deinterlacer = image_transform::ImageDeinterlacer<boost::gil::gray8_view_t>;
using Bytes = std::vector<std::uint8_t>;

Bytes BytesOf(const ImageData& image) {
    return {image.data, image.data + image.size};
}

Bytes Expected(const std::uint8_t* frame, std::uint32_t width, std::uint32_t height, std::uint32_t columnStep) {
    Bytes kept;
    for (std::uint32_t row = 0; row < height; row += 2) {
        for (std::uint32_t column = 0; column < width; column += columnStep) {
            kept.push_back(frame[row * width + column]);
        }
    }
    return kept;
}

std::string RefusalOf(Deinterlacer& step, const ImageData& in) {
    ImageData out;
    try {
        step.Transform(in, out);
    } catch (const std::exception& error) {
        EXPECT_EQ(out.data, nullptr);
        return error.what();
    }
    return "no exception";
}

ImageData Raw(std::uint32_t width, std::uint32_t height, std::uint32_t size, std::uint8_t* data) {
    ImageData image;
    image.width = width;
    image.height = height;
    image.size = size;
    image.data = data;
    return image;
}

TEST(ImageDeinterlacer, KeepsEverySecondRow) {
    GuardedBytes frame(yuv::RandomBytes(640 * 480, 1));
    Deinterlacer step(640, 480, false);
    ImageData out;
    step.Transform(ImageData(640, 480, 640 * 480, frame.data()), out);
    EXPECT_EQ(out.width, 640u);
    EXPECT_EQ(out.height, 240u);
    EXPECT_EQ(out.size, 640u * 240u);
    EXPECT_EQ(out.data, out.storage.get());
    EXPECT_EQ(BytesOf(out), Expected(frame.data(), 640, 480, 1));
}

TEST(ImageDeinterlacer, RoundsAnOddHeightUp) {
    GuardedBytes frame(yuv::RandomBytes(640 * 481, 2));
    Deinterlacer step(640, 480, false);
    ImageData out;
    step.Transform(ImageData(640, 481, 640 * 481, frame.data()), out);
    EXPECT_EQ(out.height, 241u);
    EXPECT_EQ(Bytes(out.data + 240 * 640, out.data + 241 * 640),
              Bytes(frame.data() + 480 * 640, frame.data() + 481 * 640));
}

TEST(ImageDeinterlacer, KeepsEverySecondColumnOnRequest) {
    GuardedBytes frame(yuv::RandomBytes(641 * 480, 3));
    Deinterlacer step(640, 480, true);
    ImageData out;
    step.Transform(ImageData(641, 480, 641 * 480, frame.data()), out);
    EXPECT_EQ(out.width, 321u);
    EXPECT_EQ(out.height, 240u);
    EXPECT_EQ(BytesOf(out), Expected(frame.data(), 641, 480, 2));
}

TEST(ImageDeinterlacer, HandlesEverySmallSize) {
    for (const bool halve : {false, true}) {
        Deinterlacer step(0, 0, halve);
        for (std::uint32_t width = 1; width <= 17; ++width) {
            for (std::uint32_t height = 1; height <= 17; ++height) {
                GuardedBytes frame(yuv::RandomBytes(width * height, width * 32 + height));
                ImageData out;
                step.Transform(ImageData(width, height, width * height, frame.data()), out);
                EXPECT_EQ(out.width, halve ? (width + 1) / 2 : width);
                EXPECT_EQ(out.height, (height + 1) / 2);
                ASSERT_EQ(BytesOf(out), Expected(frame.data(), width, height, halve ? 2 : 1))
                    << width << " x " << height;
            }
        }
    }
}

TEST(ImageDeinterlacer, ReadsTheFirstPlaneOfAColourFrame) {
    Bytes frame = yuv::RandomBytes(8 * 4 * 3 / 2, 4);
    Deinterlacer step(0, 0, false);
    ImageData out;
    step.Transform(ImageData(8, 4, static_cast<std::uint32_t>(frame.size()), frame.data()), out);
    EXPECT_EQ(out.size, 16u);
    EXPECT_EQ(BytesOf(out), Expected(frame.data(), 8, 4, 1));
}

TEST(ImageDeinterlacer, SkipsASmallerFrame) {
    Deinterlacer step(640, 480, false);
    Bytes frame(640 * 480, 9);
    std::uint8_t kept = 42;
    const struct { std::uint32_t width, height; } sizes[] = {{639, 480}, {640, 479}, {1, 1}};
    for (const auto& size : sizes) {
        ImageData out(1, 1, 1, &kept);
        step.Transform(ImageData(size.width, size.height, size.width * size.height, frame.data()), out);
        EXPECT_EQ(out.width, 1u);
        EXPECT_EQ(out.height, 1u);
        EXPECT_EQ(out.size, 1u);
        EXPECT_EQ(out.data, &kept);
        EXPECT_FALSE(out.storage);
    }
    EXPECT_EQ(kept, 42);
}

TEST(ImageDeinterlacer, ASmallFrameIsSkippedBeforeTheEmptyCheck) {
    Deinterlacer step(1, 1, false);
    EXPECT_EQ(RefusalOf(step, Raw(0, 0, 0, nullptr)), "no exception");
    EXPECT_EQ(RefusalOf(step, Raw(0, 5, 0, nullptr)), "no exception");
}

TEST(ImageDeinterlacer, RefusesAnEmptyFrame) {
    Deinterlacer step(0, 0, false);
    std::uint8_t byte = 0;
    constexpr char empty[] = "ImageDeinterlacer error: empty frame!";
    EXPECT_EQ(RefusalOf(step, Raw(0, 0, 0, nullptr)), empty);
    EXPECT_EQ(RefusalOf(step, Raw(0, 5, 1, &byte)), empty);
    EXPECT_EQ(RefusalOf(step, Raw(5, 0, 1, &byte)), empty);
    Deinterlacer halving(0, 0, true);
    EXPECT_EQ(RefusalOf(halving, Raw(0, 5, 1, &byte)), empty);
}

TEST(ImageDeinterlacer, RefusesDataThatIsSmallerThanThePlane) {
    Deinterlacer step(0, 0, false);
    Bytes frame(16);
    EXPECT_EQ(RefusalOf(step, ImageData(4, 4, 15, frame.data())), "Wrong image format");
    EXPECT_EQ(RefusalOf(step, ImageData(4, 4, 16, nullptr)), "Wrong image format");
    EXPECT_EQ(RefusalOf(step, ImageData(0xffffffff, 0xffffffff, 1, frame.data())), "Wrong image format");
    EXPECT_EQ(RefusalOf(step, ImageData(4, 4, 16, frame.data())), "no exception");
}

TEST(ImageDeinterlacer, ReusesItsBufferForTheSameSize) {
    Deinterlacer step(0, 0, false);
    Bytes first(16, 1);
    Bytes second(16, 2);
    ImageData one;
    ImageData other;
    step.Transform(ImageData(4, 4, 16, first.data()), one);
    step.Transform(ImageData(4, 4, 16, second.data()), other);
    EXPECT_EQ(one.storage.get(), other.storage.get());
    EXPECT_EQ(one.data[0], 2) << "overwritten";
    step.Transform(ImageData(4, 3, 12, first.data()), other);
    EXPECT_EQ(one.storage.get(), other.storage.get()) << "the output has the same size";
    step.Transform(ImageData(2, 8, 16, first.data()), other);
    EXPECT_NE(one.storage.get(), other.storage.get());
    EXPECT_EQ(one.storage.use_count(), 1);
}

TEST(ImageDeinterlacer, AcceptsOneRecordAsInputAndOutput) {
    Deinterlacer step(0, 0, true);
    Bytes frame = yuv::RandomBytes(5 * 5, 5);
    const Bytes expected = Expected(frame.data(), 5, 5, 2);
    ImageData owner(5, 5, 25);
    std::copy(frame.begin(), frame.end(), owner.data);
    step.Transform(owner, owner);
    EXPECT_EQ(owner.width, 3u);
    EXPECT_EQ(owner.height, 3u);
    EXPECT_EQ(BytesOf(owner), expected);
}

TEST(ImageDeinterlacer, ItsOutputOutlivesIt) {
    ImageData out;
    Bytes frame(16, 3);
    {
        Deinterlacer step(0, 0, false);
        step.Transform(ImageData(4, 4, 16, frame.data()), out);
        EXPECT_EQ(out.storage.use_count(), 2);
    }
    EXPECT_EQ(out.storage.use_count(), 1);
    EXPECT_EQ(BytesOf(out), Bytes(8, 3));
}

}  // namespace
