#include "reference/reader/text_row.h"

#include <gtest/gtest.h>

namespace plate_reading {
namespace {

TEST(TextRow, BoxContainsTheSlopedRow) {
    const TextRow row = {{100, 50}, 80, 20, -0.25f, 1};
    const cv::Rect2f box = row.Box();
    EXPECT_FLOAT_EQ(box.x, 60);
    EXPECT_FLOAT_EQ(box.width, 80);
    EXPECT_FLOAT_EQ(box.y, 30);
    EXPECT_FLOAT_EQ(box.height, 40);
}

TEST(TextRow, OverlapAndIntersectionOverUnion) {
    const cv::Rect2f whole(0, 0, 10, 10);
    const cv::Rect2f quarter(5, 5, 5, 5);
    const cv::Rect2f away(20, 20, 5, 5);
    EXPECT_NEAR(static_cast<double>(Overlap(whole, quarter)), 1, 1e-4);
    EXPECT_NEAR(static_cast<double>(IntersectionOverUnion(whole, quarter)), 0.25, 1e-4);
    EXPECT_EQ(Overlap(whole, away), 0);
    EXPECT_EQ(IntersectionOverUnion(whole, away), 0);
}

// In a picture with a linear gradient, a pixel's value shows where it was taken from.
TEST(CutRow, SamplesPixelsAlongTheRow) {
    cv::Mat across(300, 400, CV_8U);
    cv::Mat down(300, 400, CV_8U);
    for (int y = 0; y < 300; ++y) {
        for (int x = 0; x < 400; ++x) {
            across.at<std::uint8_t>(y, x) = static_cast<std::uint8_t>(x * 255 / 400);
            down.at<std::uint8_t>(y, x) = static_cast<std::uint8_t>(y * 255 / 300);
        }
    }
    const cv::Size size(160, 32);
    for (const float height : {20.f, 60.f}) {
        const TextRow row = {{200, 150}, 5 * height, height, 0.2f, 1};
        const float width = CutWidth(row, 0.1f);
        EXPECT_FLOAT_EQ(width, 6.1f * height);
        const cv::Mat xs = CutRow(across, row, 0.5f, 0.1f, size);
        const cv::Mat ys = CutRow(down, row, 0.5f, 0.1f, size);
        ASSERT_EQ(xs.size(), size);
        for (int y = 1; y < size.height - 1; y += 5) {
            for (int x = 1; x < size.width - 1; x += 9) {
                const float along = (static_cast<float>(x) / 160 - 0.5f) * width;
                const float fromX = 200 + along;
                const float fromY = 150 + 0.2f * along + (static_cast<float>(y) / 32 - 0.5f) * height / 0.5f;
                if (fromX < 4 || fromX > 395 || fromY < 4 || fromY > 295) {
                    continue;
                }
                EXPECT_NEAR(xs.at<std::uint8_t>(y, x), fromX * 255 / 400, 2.5f) << x << "," << y;
                EXPECT_NEAR(ys.at<std::uint8_t>(y, x), fromY * 255 / 300, 2.5f) << x << "," << y;
            }
        }
    }
}

TEST(CutRow, ReplicatesTheBorderOutsideThePicture) {
    const cv::Mat grey(100, 100, CV_8U, cv::Scalar(77));
    for (const float height : {10.f, 90.f}) {
        const cv::Mat cut = CutRow(grey, {{2, 3}, 6 * height, height, 0.3f, 1}, 0.7f, 0.1f, cv::Size(160, 32));
        EXPECT_EQ(cv::countNonZero(cut != 77), 0);
    }
}

TEST(CutRow, AcceptsARowOutsideThePicture) {
    const cv::Mat grey(100, 100, CV_8U, cv::Scalar(77));
    const cv::Mat cut = CutRow(grey, {{900, 900}, 400, 80, 0, 1}, 0.7f, 0.1f, cv::Size(160, 32));
    EXPECT_EQ(cut.size(), cv::Size(160, 32));
}

}  // namespace
}  // namespace plate_reading
