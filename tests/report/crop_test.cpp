#include "tools/report/crop.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tests/report/synthetic.h"
#include "tools/report/base64.h"

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_ONLY_JPEG
#define STBI_NO_STDIO
#include <stb/stb_image.h>

namespace report {
namespace {

using report_test::Frame420;

std::string FromBase64(const std::string& text) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    std::uint32_t group = 0;
    int bits = 0;
    for (const char character : text.substr(0, text.find('='))) {
        group = group << 6 | static_cast<std::uint32_t>(digits.find(character));
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes.push_back(static_cast<char>(group >> bits & 255U));
        }
    }
    return bytes;
}

struct Decoded {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> pixels;

    std::vector<int> At(int x, int y) const {
        const auto first = pixels.begin() + (y * width + x) * 3;
        return {first, first + 3};
    }
};

Decoded Decode(const recording::Crop& crop) {
    const std::string bytes = FromBase64(crop.jpegBase64);
    Decoded decoded;
    int channels = 0;
    stbi_uc* const pixels =
        stbi_load_from_memory(reinterpret_cast<const stbi_uc*>(bytes.data()), static_cast<int>(bytes.size()),
                              &decoded.width, &decoded.height, &channels, 3);
    if (pixels != nullptr) {
        decoded.pixels.assign(pixels, pixels + std::size_t{3} * static_cast<std::size_t>(decoded.width) *
                                                   static_cast<std::size_t>(decoded.height));
        stbi_image_free(pixels);
    }
    return decoded;
}

void ExpectNear(const std::vector<int>& colour, const std::vector<int>& expected) {
    for (std::size_t index = 0; index < 3; ++index) {
        EXPECT_NEAR(colour[index], expected[index], 6) << index;
    }
}

FrameView ViewOf(const std::vector<std::uint8_t>& frame, std::uint32_t width, std::uint32_t height) {
    return {frame.data(), frame.size(), width, height};
}

TEST(Crop, TheRectangleIsThreePlatesWide) {
    const auto frame = Frame420(1280, 720, 128, 128, 128);
    const auto crop = MakeCrop(ViewOf(frame, 1280, 720), {600, 300, 700, 330});
    ASSERT_TRUE(crop);
    EXPECT_EQ(crop->left, 500U);
    EXPECT_EQ(crop->top, 215U);
    EXPECT_EQ(crop->width, 300U);
    EXPECT_EQ(crop->height, 200U);
    const Decoded picture = Decode(*crop);
    EXPECT_EQ(picture.width, 300);
    EXPECT_EQ(picture.height, 200);
}

TEST(Crop, TheRectangleIsInsideTheFrame) {
    const auto frame = Frame420(640, 480, 128, 128, 128);
    for (const PlateBox& plate : {PlateBox{0, 0, 100, 20}, PlateBox{560, 470, 660, 490}, PlateBox{-50, -9, 60, 10},
                                  PlateBox{0, 0, 640, 480}, PlateBox{-2'000'000'000, -5, 2'000'000'000, 5}}) {
        const auto crop = MakeCrop(ViewOf(frame, 640, 480), plate);
        ASSERT_TRUE(crop);
        EXPECT_GT(crop->width, 0U);
        EXPECT_LE(crop->left + crop->width, 640U);
        EXPECT_LE(crop->top + crop->height, 480U);
        EXPECT_FALSE(Decode(*crop).pixels.empty());
    }
    const auto tiny = Frame420(2, 2, 128, 128, 128);
    const auto crop = MakeCrop(ViewOf(tiny, 2, 2), {0, 0, 2, 2});
    ASSERT_TRUE(crop);
    EXPECT_EQ(Decode(*crop).width, 2);
}

TEST(Crop, LargePlatesAreScaledDown) {
    const auto frame = Frame420(3840, 2160, 128, 128, 128);
    const auto crop = MakeCrop(ViewOf(frame, 3840, 2160), {1500, 1000, 2100, 1150});
    ASSERT_TRUE(crop);
    EXPECT_EQ(crop->width, 1800U);
    EXPECT_EQ(Decode(*crop).width, 360);
    EXPECT_EQ(Decode(*crop).height, 240);
}

// Red, green and blue of the same formula as in the snapshots of the host.
TEST(Crop, ColoursAreConverted) {
    struct Case {
        std::uint8_t luminance, blueDifference, redDifference;
        std::vector<int> colour;
    };
    for (const Case& each :
         {Case{76, 85, 255, {254, 0, 0}}, Case{150, 44, 21, {0, 255, 1}}, Case{29, 255, 107, {0, 0, 254}},
          Case{255, 128, 128, {255, 255, 255}}, Case{100, 128, 128, {100, 100, 100}}}) {
        const auto frame = Frame420(640, 480, each.luminance, each.blueDifference, each.redDifference);
        const auto crop = MakeCrop(ViewOf(frame, 640, 480), {300, 200, 400, 230});
        ASSERT_TRUE(crop);
        ExpectNear(Decode(*crop).At(50, 50), each.colour);
    }
}

TEST(Crop, APictureOnlyOfLuminanceIsGrey) {
    std::vector<std::uint8_t> frame(640 * 480, 90);
    const auto crop = MakeCrop(ViewOf(frame, 640, 480), {300, 200, 400, 230});
    ASSERT_TRUE(crop);
    ExpectNear(Decode(*crop).At(10, 10), {90, 90, 90});
}

TEST(Crop, ThePlateIsWhereTheRectangleSays) {
    for (const int scale : {1, 4}) {
        const auto side = static_cast<std::uint32_t>(640 * scale);
        auto frame = Frame420(side, side, 20, 128, 128);
        const PlateBox plate{200 * scale, 300 * scale, 300 * scale, 340 * scale};
        for (int y = plate.top; y < plate.bottom; ++y) {
            for (int x = plate.left; x < plate.right; ++x) {
                frame[static_cast<std::size_t>(y) * side + static_cast<std::size_t>(x)] = 230;
            }
        }
        const auto crop = MakeCrop(ViewOf(frame, side, side), plate);
        ASSERT_TRUE(crop);
        const Decoded picture = Decode(*crop);
        const auto at = [&](int x, int y) {
            return picture.At((x - static_cast<int>(crop->left)) * picture.width / static_cast<int>(crop->width),
                              (y - static_cast<int>(crop->top)) * picture.height / static_cast<int>(crop->height));
        };
        ExpectNear(at(plate.left + 12 * scale, plate.top + 12 * scale), {230, 230, 230});
        ExpectNear(at(plate.right - 12 * scale, plate.bottom - 12 * scale), {230, 230, 230});
        ExpectNear(at(plate.left - 16 * scale, plate.top + 12 * scale), {20, 20, 20});
        ExpectNear(at(plate.left + 12 * scale, plate.bottom + 16 * scale), {20, 20, 20});
    }
}

// Ten thousand of them are in one page.
TEST(Crop, NoisyPicturesStaySmall) {
    std::mt19937 random(1);
    auto frame = Frame420(640, 480, 0, 128, 128);
    for (std::size_t index = 0; index < 640 * 480; ++index) {
        frame[index] = static_cast<std::uint8_t>(100 + random() % 20);
    }
    const auto crop = MakeCrop(ViewOf(frame, 640, 480), {200, 200, 320, 240});
    ASSERT_TRUE(crop);
    EXPECT_LT(crop->jpegBase64.size(), 20'000U);
}

TEST(Crop, WithoutAPlateInTheFrameThereIsNone) {
    const auto frame = Frame420(640, 480, 128, 128, 128);
    const FrameView view = ViewOf(frame, 640, 480);
    for (const PlateBox& plate : {PlateBox{0, 0, 0, 0}, PlateBox{300, 200, 200, 220}, PlateBox{640, 0, 700, 20},
                                  PlateBox{-100, 0, 0, 20}, PlateBox{0, 480, 90, 500}, PlateBox{0, -20, 90, 0}}) {
        EXPECT_FALSE(MakeCrop(view, plate));
    }
    EXPECT_FALSE(MakeCrop({frame.data(), frame.size() - 1, 640, 480}, {300, 200, 400, 230}));
    EXPECT_FALSE(MakeCrop({nullptr, frame.size(), 640, 480}, {300, 200, 400, 230}));
    EXPECT_FALSE(MakeCrop({frame.data(), 0, 0, 0}, {300, 200, 400, 230}));
}

TEST(Base64, HasTheKnownTexts) {
    EXPECT_EQ(Base64Of(""), "");
    EXPECT_EQ(Base64Of("f"), "Zg==");
    EXPECT_EQ(Base64Of("fo"), "Zm8=");
    EXPECT_EQ(Base64Of("foobar"), "Zm9vYmFy");
    EXPECT_EQ(Base64Of("\xFF\xEF\xBE"), "/+++");
}

}  // namespace
}  // namespace report
