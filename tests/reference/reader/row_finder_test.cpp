#include "reference/reader/row_finder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

namespace plate_reading {
namespace {

constexpr HeightRange any = {0, 1000};

/// Draws character-shaped bars in a line that falls by `slope` pixels for each pixel to the right.
void DrawRow(cv::Mat& grey, cv::Point start, int characters, int height, double slope, int ink) {
    for (int i = 0; i < characters; ++i) {
        const int x = start.x + i * height * 4 / 5;
        const int y = start.y + static_cast<int>(slope * (x - start.x));
        cv::rectangle(grey, cv::Rect(x, y, height / 2, height), cv::Scalar(ink), -1);
    }
}

TEST(RowFinder, FindsDarkAndLightRows) {
    cv::Mat grey(720, 1280, CV_8U, cv::Scalar(128));
    DrawRow(grey, {200, 100}, 7, 20, 0, 20);
    DrawRow(grey, {700, 400}, 6, 30, 0.15, 240);
    const std::vector<TextRow> rows = FindRows(grey, any, 10);
    ASSERT_THAT(rows, testing::SizeIs(2));
    EXPECT_NEAR(rows[0].centre.x, 200 + (6 * 16 + 10) / 2, 3);
    EXPECT_NEAR(rows[0].centre.y, 110, 2);
    EXPECT_NEAR(rows[0].width, 6 * 16 + 10, 4);
    EXPECT_NEAR(rows[0].height, 20, 2);
    EXPECT_NEAR(rows[0].slope, 0, 0.02);
    EXPECT_EQ(rows[0].score, 7);
    EXPECT_NEAR(rows[1].width, 5 * 24 + 15, 4);
    EXPECT_NEAR(rows[1].height, 30, 2);
    EXPECT_NEAR(rows[1].slope, 0.15, 0.03);
    EXPECT_EQ(rows[1].score, 6);
}

TEST(RowFinder, ReturnsPictureCoordinatesAtAnyScale) {
    for (const int factor : {1, 2, 4}) {
        cv::Mat grey(240 * factor, 480 * factor, CV_8U, cv::Scalar(128));
        DrawRow(grey, {100 * factor, 100 * factor}, 7, 12 * factor, 0, 20);
        const std::vector<TextRow> rows = FindRows(grey, any, 10);
        ASSERT_THAT(rows, testing::SizeIs(1)) << factor;
        EXPECT_NEAR(rows[0].height, 12 * factor, 2 * factor);
        EXPECT_NEAR(rows[0].centre.y, 106 * factor, 2 * factor);
    }
}

TEST(RowFinder, IgnoresShapesThatAreNotRows) {
    cv::Mat grey(720, 1280, CV_8U, cv::Scalar(128));
    EXPECT_THAT(FindRows(grey, any, 10), testing::IsEmpty());
    DrawRow(grey, {200, 100}, 2, 20, 0, 20);                               // too few
    DrawRow(grey, {200, 300}, 20, 20, 0, 20);                              // too many
    DrawRow(grey, {700, 100}, 5, 20, 0.8, 20);                             // too steep
    cv::rectangle(grey, cv::Rect(700, 500, 300, 20), cv::Scalar(20), -1);  // a bar
    EXPECT_THAT(FindRows(grey, any, 10), testing::IsEmpty());
}

TEST(RowFinder, IgnoresHeightsOutsideTheRange) {
    cv::Mat grey(720, 1280, CV_8U, cv::Scalar(128));
    DrawRow(grey, {200, 100}, 7, 16, 0, 20);
    DrawRow(grey, {200, 400}, 7, 40, 0, 20);
    EXPECT_THAT(FindRows(grey, any, 10), testing::SizeIs(2));
    ASSERT_THAT(FindRows(grey, {0, 25}, 10), testing::SizeIs(1));
    EXPECT_NEAR(FindRows(grey, {0, 25}, 10)[0].height, 16, 2);
    ASSERT_THAT(FindRows(grey, {25, 90}, 10), testing::SizeIs(1));
    EXPECT_NEAR(FindRows(grey, {25, 90}, 10)[0].height, 40, 2);
}

TEST(RowFinder, ReturnsTheRowsWithMostCharactersUpToTheLimit) {
    cv::Mat grey(720, 1280, CV_8U, cv::Scalar(128));
    for (int i = 0; i < 6; ++i) {
        DrawRow(grey, {200, 60 + 100 * i}, 3 + i, 20, 0, 20);
    }
    const std::vector<TextRow> rows = FindRows(grey, any, 4);
    ASSERT_THAT(rows, testing::SizeIs(4));
    for (std::size_t i = 1; i < rows.size(); ++i) {
        EXPECT_GE(rows[i - 1].score, rows[i].score);
    }
    EXPECT_EQ(rows[3].score, 5);
}

}  // namespace
}  // namespace plate_reading
