#include "reference/reader/plate_detector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "reference/reader/networks.h"
#include "tests/reference/reader/plate_picture.h"

namespace plate_reading {
namespace {

using plate_reading_test::DrawPlate;
using plate_reading_test::DrawStreet;

constexpr HeightRange any = {0, 1000};

cv::Mat Grey(const cv::Mat& colours) {
    cv::Mat grey;
    cv::cvtColor(colours, grey, cv::COLOR_BGR2GRAY);
    return grey;
}

TEST(PlateDetector, MeasuresARowAtEveryHeight) {
    PlateDetector detector(DetectorNetwork());
    for (const double height : {9.0, 13.0, 20.0, 31.0, 47.0, 70.0, 100.0}) {
        cv::Mat picture = DrawStreet(1280, 720);
        const double width = DrawPlate(picture, {"AB123CD", 600, 350, height, 0.05});
        const std::vector<TextRow> rows = detector.Find(Grey(picture), any);
        ASSERT_THAT(rows, testing::Not(testing::IsEmpty())) << height;
        EXPECT_NEAR(rows[0].centre.x, 600, height) << height;
        EXPECT_NEAR(rows[0].centre.y, 350, height * 0.4) << height;
        EXPECT_NEAR(rows[0].width, width, height * 1.5) << height;
        EXPECT_NEAR(rows[0].height, height, height * 0.35) << height;
        EXPECT_NEAR(rows[0].slope, 0.05, 0.06) << height;
        EXPECT_GT(rows[0].score, 0.5) << height;
    }
}

TEST(PlateDetector, SearchesOnlyTheRequestedHeights) {
    PlateDetector detector(DetectorNetwork());
    cv::Mat picture = DrawStreet(1280, 720);
    DrawPlate(picture, {"AB123CD", 300, 150, 10});
    DrawPlate(picture, {"KLM4567", 700, 450, 90});
    const cv::Mat grey = Grey(picture);
    EXPECT_THAT(detector.Find(grey, any), testing::SizeIs(testing::Ge(2u)));
    for (const TextRow& row : detector.Find(grey, {0, 15})) {
        EXPECT_LT(row.height, 45);
    }
    for (const TextRow& row : detector.Find(grey, {70, 1000})) {
        EXPECT_GT(row.height, 30);
    }
    EXPECT_THAT(detector.Find(grey, {0, 15}), testing::Not(testing::IsEmpty()));
    EXPECT_THAT(detector.Find(grey, {70, 1000}), testing::Not(testing::IsEmpty()));
}

TEST(PlateDetector, SearchesAPartAtTheScalesOfTheWhole) {
    PlateDetector detector(DetectorNetwork());
    cv::Mat picture = DrawStreet(1280, 720);
    DrawPlate(picture, {"AB123CD", 300, 150, 14});
    DrawPlate(picture, {"KLM4567", 900, 450, 40});
    const cv::Mat grey = Grey(picture);
    const std::vector<TextRow> all = detector.Find(grey, any);
    for (const cv::Rect part : {cv::Rect(128, 64, 320, 192), cv::Rect(640, 320, 512, 256)}) {
        const std::vector<TextRow> rows = detector.Find(grey(part), any, grey.cols);
        ASSERT_THAT(rows, testing::Not(testing::IsEmpty()));
        const cv::Point2f centre = rows[0].centre + cv::Point2f(part.tl());
        const bool isInWhole = std::any_of(all.begin(), all.end(), [&](const TextRow& row) {
            return cv::norm(row.centre - centre) < 4 && std::abs(row.height - rows[0].height) < 3;
        });
        EXPECT_TRUE(isInWhole) << centre;
    }
}

TEST(PlateDetector, TheMostConfidentRowIsFirst) {
    PlateDetector detector(DetectorNetwork());
    cv::Mat picture = DrawStreet(1280, 720);
    for (int i = 0; i < 4; ++i) {
        DrawPlate(picture, {"AB123CD", 200.0 + 280 * i, 350, 12.0 + 5 * i});
    }
    const std::vector<TextRow> rows = detector.Find(Grey(picture), any);
    ASSERT_GE(rows.size(), 4u);
    for (std::size_t i = 1; i < rows.size(); ++i) {
        EXPECT_GE(rows[i - 1].score, rows[i].score);
    }
}

}  // namespace
}  // namespace plate_reading
