#include "tools/evaluate/picture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/evaluate/jpeg.h"
#include "tests/evaluate/pictures.h"
#include "tests/host/temporary_folder.h"
#include "tools/evaluate/failure.h"

namespace evaluate_test {
namespace {

using host_test::TemporaryFolder;
using plate_evaluation::Failure;
using plate_evaluation::Picture;
using plate_evaluation::ReadPicture;

std::string ErrorOf(const std::string& path) {
    try {
        ReadPicture(path);
    } catch (const Failure& failure) {
        return failure.what();
    }
    return "none";
}

/// Returns an interpolated sample of a plane. Coordinates outside are clamped to the border.
double Interpolate(const YuvPicture& yuv, int plane, double x, double y) {
    const auto [width, height] = yuv.SizeOf(plane);
    const auto at = [&, w = width, h = height](double column, double row) {
        const int clampedColumn = std::clamp(static_cast<int>(column), 0, w - 1);
        const int clampedRow = std::clamp(static_cast<int>(row), 0, h - 1);
        return static_cast<double>(
            yuv.planes[static_cast<std::size_t>(plane)][static_cast<std::size_t>(clampedRow * w + clampedColumn)]);
    };
    const double left = std::floor(x);
    const double top = std::floor(y);
    const double upper = at(left, top) * (left + 1 - x) + at(left + 1, top) * (x - left);
    const double lower = at(left, top + 1) * (left + 1 - x) + at(left + 1, top + 1) * (x - left);
    return upper * (top + 1 - y) + lower * (y - top);
}

/// Converts a pixel by the file format's formula, with chroma samples centred between their luma samples.
std::array<double, 3> ReferenceBgr(const YuvPicture& yuv, int x, int y) {
    const double luminance = Interpolate(yuv, 0, x, y);
    const int stepX = yuv.halfWidth ? 2 : 1;
    const int stepY = yuv.halfHeight ? 2 : 1;
    const double chromaX = (x + 0.5) / stepX - 0.5;
    const double chromaY = (y + 0.5) / stepY - 0.5;
    const double cb = Interpolate(yuv, 1, chromaX, chromaY) - 128;
    const double cr = Interpolate(yuv, 2, chromaX, chromaY) - 128;
    const auto clamp = [](double value) { return std::clamp(value, 0.0, 255.0); };
    return {clamp(luminance + 1.772 * cb), clamp(luminance - 0.344136 * cb - 0.714136 * cr),
            clamp(luminance + 1.402 * cr)};
}

/// Returns the largest difference between the pictures over all samples.
double LargestDifference(const Picture& picture, const YuvPicture& yuv) {
    double largest = 0;
    for (int y = 0; y < picture.height; ++y) {
        for (int x = 0; x < picture.width; ++x) {
            const std::array<double, 3> wanted = ReferenceBgr(yuv, x, y);
            for (std::size_t sample = 0; sample < 3; ++sample) {
                const std::size_t place = static_cast<std::size_t>(y * picture.width + x) * 3 + sample;
                largest = std::max(largest, std::abs(wanted[sample] - picture.pixels[place]));
            }
        }
    }
    return largest;
}

TEST(Picture, ReadsEverySampleOfALosslessPicture) {
    const TemporaryFolder folder;
    // Includes widths whose rows are not multiples of a vector's size.
    for (const auto& [width, height] : {std::pair{37, 5}, std::pair{1, 1}, std::pair{64, 3}}) {
        const Picture picture = ReadPicture(folder.Write("picture.ppm", Ppm(width, height, 3)));
        EXPECT_EQ(picture.width, width);
        EXPECT_EQ(picture.height, height);
        EXPECT_EQ(picture.Stride(), static_cast<std::size_t>(width) * 3);
        EXPECT_EQ(picture.pixels, BgrPixels(width, height, 3));
    }
}

TEST(Picture, AJpegUsesTheFullRange) {
    const TemporaryFolder folder;
    // Each picture has one value, which the format stores exactly. Black and white of the limited range are grey here.
    for (const int luminance : {0, 16, 100, 235, 255}) {
        const YuvPicture grey = MakeYuv(32, 16, true, true, [luminance](int plane, int, int) {
            return static_cast<std::uint8_t>(plane == 0 ? luminance : 128);
        });
        const Picture picture = ReadPicture(folder.Write("grey.jpg", Jpeg(grey)));
        ASSERT_EQ(picture.pixels.size(), 32u * 16 * 3);
        EXPECT_EQ(std::count(picture.pixels.begin(), picture.pixels.end(), luminance), 32 * 16 * 3)
            << luminance << " became " << int{picture.pixels[0]};
    }
}

TEST(Picture, ColoursOfAJpegFollowItsFormula) {
    const TemporaryFolder folder;
    for (const auto& [halfWidth, halfHeight] :
         {std::pair{false, false}, std::pair{true, false}, std::pair{true, true}}) {
        const YuvPicture drawn =
            MakeYuv(64, 48, halfWidth, halfHeight, [wide = halfWidth, high = halfHeight](int plane, int x, int y) {
                // Steep gradients, so that a displacement changes the colour.
                const int blue = 30 + x * (wide ? 6 : 3);
                const int red = 220 - y * (high ? 8 : 4);
                return static_cast<std::uint8_t>(plane == 0 ? 70 + x + y : plane == 1 ? blue : red);
            });
        const std::string file = Jpeg(drawn);
        const Picture picture = ReadPicture(folder.Write("colours.jpg", file));
        ASSERT_EQ(picture.width, 64);
        ASSERT_EQ(picture.height, 48);
        EXPECT_LE(LargestDifference(picture, DecodeJpeg(file)), 1.6)
            << (halfWidth ? "half width " : "") << (halfHeight ? "half height" : "");
    }
}

TEST(Picture, SpecialCharactersInFileNamesAreLiteral) {
    const TemporaryFolder folder;
    for (const char* const name : {"100%d.ppm", "pipe:1.ppm", "a b.ppm", "without_ending", "wrong.jpg"}) {
        folder.Write(name, Ppm(8, 8, 1));
        EXPECT_EQ(ReadPicture(folder.Path(name)).pixels, BgrPixels(8, 8, 1)) << name;
    }
}

TEST(Picture, AFileThatIsNotAPictureIsRefused) {
    const TemporaryFolder folder;
    EXPECT_EQ(ErrorOf(folder.Path("none.jpg")), "No such file or directory");
    EXPECT_EQ(ErrorOf(folder.MakeFolder("folder.jpg")), "Is a directory");
    EXPECT_NE(ErrorOf(folder.Write("empty.jpg", "")), "none");
    EXPECT_NE(ErrorOf(folder.Write("text.jpg", "This is a text and no picture.\n")), "none");
}

TEST(Picture, ATruncatedFileIsRefused) {
    const TemporaryFolder folder;
    const std::string ppm = Ppm(32, 32, 1);
    EXPECT_NE(ErrorOf(folder.Write("short.ppm", ppm.substr(0, ppm.size() / 2))), "none");
    const std::string jpeg = Jpeg(MakeYuv(64, 64, true, true, [](int plane, int x, int y) {
        return static_cast<std::uint8_t>(plane == 0 ? x * 37 + y * 101 : 128);
    }));
    EXPECT_EQ(ErrorOf(folder.Write("whole.jpg", jpeg)), "none");
    EXPECT_NE(ErrorOf(folder.Write("short.jpg", jpeg.substr(0, jpeg.size() / 2))), "none");
}

}  // namespace
}  // namespace evaluate_test
