#include "reference/reader/plate_frame_reader.h"

#include <algorithm>
#include <cmath>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "tests/reference/reader/plate_picture.h"

namespace plate_reading {
namespace {

using plate_reading_test::AsPicture;
using plate_reading_test::DrawnPlate;
using plate_reading_test::DrawPlate;
using plate_reading_test::DrawStreet;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

constexpr int width = 1280;
constexpr int height = 720;

class PlateFrameReaderTest : public testing::Test {
  protected:
    std::vector<Reading> Read(const std::optional<Region>& region = {}, const std::optional<WidthRange>& widths = {},
                              const std::optional<Region>& part = {}) {
        return reader->Read(AsPicture(picture), {region, widths, part});
    }

    static std::vector<std::string> Texts(const std::vector<Reading>& readings) {
        std::vector<std::string> texts;
        for (const Reading& reading : readings) {
            texts.push_back(reading.text);
        }
        return texts;
    }

    static int WidthOf(const Reading& reading) { return reading.corners[2].x - reading.corners[0].x; }

    cv::Mat picture = DrawStreet(width, height);
    std::unique_ptr<FrameReader> reader = MakePlateFrameReader({});
};

TEST_F(PlateFrameReaderTest, ReadsPlatesOfManySizesAndPlaces) {
    std::mt19937 random(5);
    const auto draw = [&](int low, int high) { return std::uniform_int_distribution(low, high)(random); };
    const std::string letters = "ABCDEFGHJKLMNPRSTUVWXYZ";
    const std::string digits = "0123456789";
    int right = 0;
    constexpr int plates = 20;
    for (int i = 0; i < plates; ++i) {
        picture = DrawStreet(width, height);
        std::string text;
        for (const char kind : std::string(i % 2 == 0 ? "LLDDDLL" : "LLLDDDD")) {
            const std::string& set = kind == 'L' ? letters : digits;
            text += set[static_cast<std::size_t>(draw(0, static_cast<int>(set.size()) - 1))];
        }
        const DrawnPlate plate = {text, static_cast<double>(draw(200, 1080)), static_cast<double>(draw(60, 660)),
                                  static_cast<double>(draw(11, 60)), draw(-60, 60) / 1000.0};
        const double textWidth = DrawPlate(picture, plate);
        const std::vector<Reading> readings = Read();
        ASSERT_THAT(readings, testing::Not(IsEmpty())) << text;
        const auto& corners = readings[0].corners;
        double x = 0;
        double y = 0;
        for (const Point& corner : corners) {
            x += corner.x / 4.0;
            y += corner.y / 4.0;
        }
        EXPECT_NEAR(x, plate.x, plate.characterHeight * 0.5) << text;
        EXPECT_NEAR(y, plate.y, plate.characterHeight * 0.35) << text;
        EXPECT_NEAR(WidthOf(readings[0]), textWidth, plate.characterHeight) << text;
        right += readings[0].text == text ? 1 : 0;
    }
    EXPECT_GE(right, plates * 9 / 10);
}

TEST_F(PlateFrameReaderTest, CornersAreTopLeftBottomLeftTopRightBottomRight) {
    DrawPlate(picture, {"AB123CD", 640, 360, 30, 0.1});
    const std::vector<Reading> readings = Read();
    ASSERT_THAT(readings, SizeIs(1));
    const auto [topLeft, bottomLeft, topRight, bottomRight] = readings[0].corners;
    EXPECT_LT(topLeft.y, bottomLeft.y);
    EXPECT_LT(topRight.y, bottomRight.y);
    EXPECT_LT(topLeft.x, topRight.x);
    EXPECT_LT(bottomLeft.x, bottomRight.x);
    EXPECT_NEAR(bottomLeft.y - topLeft.y, 30, 8);
    // The plate is turned clockwise.
    const double slope = static_cast<double>(topRight.y - topLeft.y) / (topRight.x - topLeft.x);
    EXPECT_NEAR(slope, std::tan(0.1), 0.03);
}

TEST_F(PlateFrameReaderTest, ReadsPlatesOfTenCharacters) {
    for (const std::string text : {"MH12AB3456", "KA51MB7890", "DL08CA1234"}) {
        picture = DrawStreet(width, height);
        DrawPlate(picture, {text, 640, 400, 30});
        EXPECT_THAT(Texts(Read()), testing::ElementsAre(text));
    }
}

TEST_F(PlateFrameReaderTest, JoinsTheTwoRowsOfAPlate) {
    const double upperWidth = DrawPlate(picture, {"AP28", 640, 400, 30});
    const double lowerWidth = DrawPlate(picture, {"DF0739", 642, 445, 30});
    const std::vector<Reading> readings = Read();
    ASSERT_THAT(Texts(readings), testing::ElementsAre("AP28DF0739"));
    EXPECT_NEAR(WidthOf(readings[0]), std::max(upperWidth, lowerWidth), 15);
    EXPECT_NEAR(readings[0].corners[0].y, 385, 10) << "the top of the upper row";
    EXPECT_NEAR(readings[0].corners[1].y, 460, 10) << "the bottom of the lower row";
}

TEST_F(PlateFrameReaderTest, DoesNotJoinLetteringBelowAPlate) {
    DrawPlate(picture, {"KL456MN", 640, 400, 30});
    DrawPlate(picture, {"DEKRA", 640, 445, 30});
    EXPECT_THAT(Texts(Read()), UnorderedElementsAre("KL456MN", "DEKRA"));
}

TEST_F(PlateFrameReaderTest, DoesNotJoinTheLinesOfASign) {
    DrawPlate(picture, {"HOTEL", 640, 400, 30});
    DrawPlate(picture, {"A250", 640, 445, 30});
    EXPECT_THAT(Texts(reader->Read(AsPicture(picture), {.isSingle = false})), UnorderedElementsAre("HOTEL", "A250"));
}

TEST_F(PlateFrameReaderTest, OfASingleFrameOnlySureTextsAreReported) {
    DrawPlate(picture, {"HOTEL", 300, 200, 20});
    DrawPlate(picture, {"PERSONAL", 900, 200, 12});
    DrawPlate(picture, {"OPEN24H", 300, 500, 9});
    cv::GaussianBlur(picture, picture, {}, 1.6);
    const std::vector<Reading> inStream = reader->Read(AsPicture(picture), {.isSingle = false});
    const std::vector<Reading> alone = Read();
    EXPECT_LT(alone.size(), inStream.size());
    for (const Reading& reading : alone) {
        EXPECT_GE(reading.confidence, reading.hasFormat ? 70 : 95) << reading.text;
    }
}

TEST_F(PlateFrameReaderTest, DoesNotJoinPlatesOfVehiclesBehindEachOther) {
    DrawPlate(picture, {"AB1234", 640, 300, 20});
    DrawPlate(picture, {"CD5678", 640, 420, 30});
    EXPECT_THAT(Texts(Read()), UnorderedElementsAre("AB1234", "CD5678"));
}

TEST_F(PlateFrameReaderTest, FindsNothingInAnEmptyPicture) {
    EXPECT_THAT(Read(), IsEmpty());
    picture.setTo(cv::Scalar(0, 0, 0));
    EXPECT_THAT(Read(), IsEmpty());
    picture.setTo(cv::Scalar(255, 255, 255));
    EXPECT_THAT(Read(), IsEmpty());
}

TEST_F(PlateFrameReaderTest, SearchesOnlyTheRegionAndReturnsPictureCoordinates) {
    DrawPlate(picture, {"AB123CD", 300, 200, 24});
    DrawPlate(picture, {"KLM4567", 900, 500, 24});
    EXPECT_THAT(Texts(Read()), UnorderedElementsAre("AB123CD", "KLM4567"));
    const std::vector<Reading> readings = Read(Region{640, 360, width, height});
    ASSERT_THAT(Texts(readings), testing::ElementsAre("KLM4567"));
    EXPECT_NEAR((readings[0].corners[0].x + readings[0].corners[3].x) / 2.0, 900, 12);
    EXPECT_NEAR((readings[0].corners[0].y + readings[0].corners[3].y) / 2.0, 500, 8);
}

TEST_F(PlateFrameReaderTest, SearchesOnlyThePartOfTheRegion) {
    DrawPlate(picture, {"AB123CD", 300, 200, 24});
    DrawPlate(picture, {"KLM4567", 900, 500, 24});
    const Region part{640, 360, width, height};
    const std::vector<Reading> readings = Read({}, {}, part);
    ASSERT_THAT(Texts(readings), testing::ElementsAre("KLM4567"));
    EXPECT_NEAR((readings[0].corners[0].x + readings[0].corners[3].x) / 2.0, 900, 12);
    EXPECT_THAT(Texts(Read(part, {}, Region{0, 0, width, height})), testing::ElementsAre("KLM4567"));
    EXPECT_THAT(Read(part, {}, Region{0, 0, 500, 300}), IsEmpty());
    EXPECT_THAT(Read(part, {}, Region{}), IsEmpty());
}

TEST_F(PlateFrameReaderTest, ReadsLookAlikesByTheFormat) {
    // In this typeface the letter and the digit differ in their width only.
    DrawPlate(picture, {"MHO2AB34O1", 640, 400, 30});
    const std::vector<Reading> readings = Read();
    ASSERT_THAT(Texts(readings), testing::ElementsAre("MH02AB3401"));
    EXPECT_EQ(readings[0].country, "IND");
    EXPECT_TRUE(readings[0].hasFormat);
}

TEST_F(PlateFrameReaderTest, FindsNothingInAnOutsideOrEmptyRegion) {
    DrawPlate(picture, {"AB123CD", 300, 200, 24});
    EXPECT_THAT(Read(Region{2000, 2000, 3000, 3000}), IsEmpty());
    EXPECT_THAT(Read(Region{-500, -500, 0, 0}), IsEmpty());
    EXPECT_THAT(Read(Region{300, 100, 300, 300}), IsEmpty());
    EXPECT_THAT(Read(Region{600, 400, 100, 50}), IsEmpty());
    EXPECT_THAT(Texts(Read(Region{-500, -500, 5000, 5000})), testing::ElementsAre("AB123CD"));
}

TEST_F(PlateFrameReaderTest, OnlyWidthsInTheRangeAreReported) {
    DrawPlate(picture, {"AB123CD", 300, 200, 14});
    DrawPlate(picture, {"KLM4567", 900, 500, 50});
    const std::vector<Reading> all = Read();
    ASSERT_THAT(Texts(all), UnorderedElementsAre("AB123CD", "KLM4567"));
    const int narrow = std::min(WidthOf(all[0]), WidthOf(all[1]));
    const int wide = std::max(WidthOf(all[0]), WidthOf(all[1]));
    EXPECT_THAT(Texts(Read({}, WidthRange{0, (narrow + wide) / 2})), testing::ElementsAre("AB123CD"));
    EXPECT_THAT(Texts(Read({}, WidthRange{(narrow + wide) / 2, width})), testing::ElementsAre("KLM4567"));
    EXPECT_THAT(Texts(Read({}, WidthRange{0, width})), SizeIs(2));
    EXPECT_THAT(Read({}, WidthRange{wide + 60, width}), IsEmpty());
    EXPECT_THAT(Read({}, WidthRange{0, 0}), IsEmpty());
    EXPECT_THAT(Read({}, WidthRange{width, 0}), IsEmpty());
}

TEST_F(PlateFrameReaderTest, ReportsTheFiveMostConfidentPlatesInOrder) {
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 2; ++column) {
            DrawPlate(picture, {"AB1" + std::to_string(row) + std::to_string(column) + "CD", 320.0 + 640 * column,
                                90.0 + 180 * row, 24});
        }
    }
    const std::vector<Reading> readings = Read();
    ASSERT_THAT(readings, SizeIs(5));
    for (std::size_t i = 1; i < readings.size(); ++i) {
        EXPECT_GE(readings[i - 1].confidence, readings[i].confidence);
    }
    for (const Reading& reading : readings) {
        EXPECT_GT(reading.confidence, 50);
        EXPECT_LE(reading.confidence, 100);
    }
}

TEST_F(PlateFrameReaderTest, RowsMayHavePadding) {
    DrawPlate(picture, {"AB123CD", 640, 360, 24});
    cv::Mat wider(height, width + 100, CV_8UC3, cv::Scalar(0, 0, 255));
    picture.copyTo(wider(cv::Rect(0, 0, width, height)));
    const std::vector<Reading> packed = Read();
    const std::vector<Reading> padded = reader->Read({wider.data, width, height, wider.step}, {});
    ASSERT_THAT(Texts(packed), testing::ElementsAre("AB123CD"));
    ASSERT_THAT(Texts(padded), testing::ElementsAre("AB123CD"));
    EXPECT_DOUBLE_EQ(packed[0].confidence, padded[0].confidence);
}

TEST_F(PlateFrameReaderTest, AcceptsPicturesOfAnySize) {
    for (const cv::Size size : {cv::Size(1, 1), cv::Size(7, 300), cv::Size(9, 9), cv::Size(47, 23), cv::Size(3000, 20),
                                cv::Size(20, 2000), cv::Size(321, 243), cv::Size(4000, 2200)}) {
        cv::Mat noise(size, CV_8UC3);
        cv::theRNG().state = 3;
        cv::randu(noise, 0, 255);
        EXPECT_LE(reader->Read(AsPicture(noise), {}).size(), 5u) << size;
    }
}

TEST_F(PlateFrameReaderTest, TemplatesResolveLookAlikes) {
    DrawPlate(picture, {"OB0O8", 640, 360, 24});
    const std::vector<std::string> patterns = {"LLDLD", "DLLDD"};
    for (const std::string& pattern : patterns) {
        const std::unique_ptr<FrameReader> strict = MakePlateFrameReader({{pattern}});
        const std::vector<Reading> readings = strict->Read(AsPicture(picture), {});
        ASSERT_THAT(readings, SizeIs(1));
        ASSERT_EQ(readings[0].text.size(), pattern.size());
        for (std::size_t i = 0; i < pattern.size(); ++i) {
            EXPECT_EQ(std::isdigit(readings[0].text[i]) != 0, pattern[i] == 'D') << readings[0].text;
        }
    }
}

}  // namespace
}  // namespace plate_reading
