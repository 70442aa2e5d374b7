#include "reference/reader/reading_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace plate_reading {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Reading ReadingOf(const std::string& text, double confidence, int x, int y) {
    return {text, confidence, {Point{x, y}, Point{x, y + 20}, Point{x + 120, y}, Point{x + 120, y + 20}}, "", true};
}

ReadingStream::Clock::time_point testTime;

class ReadingStreamTest : public testing::Test {
  protected:
    ReadingStreamTest() {
        // The first picture does not yet belong to a stream, and the second one may be its start.
        Show({});
        Show({});
    }

    std::vector<std::string> Show(std::vector<Reading> readings) {
        std::vector<std::string> texts;
        reported = stream.Follow({picture.data, picture.cols, picture.rows, picture.step}, region, std::move(readings));
        for (const Reading& reading : reported) {
            texts.push_back(reading.text);
        }
        return texts;
    }

    void ChangeScene(std::uint64_t which) {
        cv::theRNG().state = which;
        cv::Mat cells(18, 32, CV_8UC3);
        cv::randu(cells, 0, 255);
        for (int y = 0; y < picture.rows; ++y) {
            for (int x = 0; x < picture.cols; ++x) {
                picture.at<cv::Vec3b>(y, x) = cells.at<cv::Vec3b>(y * 18 / picture.rows, x * 32 / picture.cols);
            }
        }
    }

    cv::Mat picture{360, 640, CV_8UC3, cv::Scalar(90, 100, 110)};
    std::optional<Region> region;
    ReadingStream stream{3, [] { return testTime; }};
    std::vector<Reading> reported;
};

TEST_F(ReadingStreamTest, AReadingIsReportedWhenEnoughPicturesAgree) {
    EXPECT_THAT(Show({ReadingOf("AB123CD", 90, 100, 100)}), IsEmpty());
    EXPECT_THAT(Show({ReadingOf("AB123CD", 90, 110, 104)}), IsEmpty());
    EXPECT_THAT(Show({ReadingOf("AB123CD", 90, 120, 108)}), ElementsAre("AB123CD"));
    EXPECT_EQ(reported[0].corners[0].x, 120);
    EXPECT_THAT(Show({ReadingOf("AB123CD", 90, 130, 112)}), ElementsAre("AB123CD"));
}

TEST_F(ReadingStreamTest, ASureTextWithAFormatNeedsOneFrameLessAndATextWithoutOneMore) {
    const auto framesFor = [](double confidence, bool hasFormat) {
        const cv::Mat grey(360, 640, CV_8UC3, cv::Scalar(90, 100, 110));
        const Picture shown{grey.data, grey.cols, grey.rows, grey.step};
        ReadingStream fresh(3);
        fresh.Follow(shown, {}, {});
        fresh.Follow(shown, {}, {});
        Reading reading = ReadingOf("AB123CD", confidence, 100, 100);
        reading.hasFormat = hasFormat;
        int frames = 1;
        while (frames < 20 && fresh.Follow(shown, {}, {reading}).empty()) {
            ++frames;
        }
        return frames;
    };
    EXPECT_EQ(framesFor(99, true), 2);
    EXPECT_EQ(framesFor(90, true), 3);
    EXPECT_EQ(framesFor(99, false), 4);
    EXPECT_EQ(framesFor(70, true), 20);
}

TEST_F(ReadingStreamTest, APlateThatIsNotReadIsReportedWhereItMustBeForAsLongAsItWasReadOrTenFrames) {
    for (int i = 0; i < 5; ++i) {
        Show({ReadingOf("AB123CD", 95, 100 + 10 * i, 100 + 2 * i)});
    }
    for (int i = 5; i < 10; ++i) {
        EXPECT_THAT(Show({}), ElementsAre("AB123CD"));
        EXPECT_EQ(reported[0].corners[0].x, 100 + 10 * i);
        EXPECT_EQ(reported[0].corners[0].y, 100 + 2 * i);
    }
    EXPECT_THAT(Show({}), IsEmpty());
    for (int i = 0; i < 30; ++i) {
        Show({ReadingOf("KLM4567", 95, 100, 200)});
    }
    for (int i = 0; i < 10; ++i) {
        EXPECT_THAT(Show({}), ElementsAre("KLM4567"));
    }
    EXPECT_THAT(Show({}), IsEmpty());
}

TEST_F(ReadingStreamTest, APlateThatJumpsIsReportedOnce) {
    for (int i = 0; i < 4; ++i) {
        Show({ReadingOf("AB123CD", 95, 100, 50)});
    }
    EXPECT_THAT(Show({ReadingOf("AB123CD", 95, 300, 250)}), ElementsAre("AB123CD"));
    EXPECT_EQ(reported[0].corners[0].x, 300);
    EXPECT_THAT(Show({ReadingOf("AB123CD", 95, 301, 250)}), ElementsAre("AB123CD"));
}

TEST_F(ReadingStreamTest, ATextConfirmsThePlateAfterAJump) {
    EXPECT_THAT(Show({ReadingOf("AB123CD", 90, 100, 50)}), IsEmpty());
    EXPECT_THAT(Show({ReadingOf("AB123CD", 90, 300, 250)}), IsEmpty());
    EXPECT_THAT(Show({ReadingOf("AB123CD", 90, 500, 50)}), ElementsAre("AB123CD"));
}

TEST_F(ReadingStreamTest, AHiddenPlateIsNotReportedOutsideTheFrameOrUnderAnother) {
    for (int i = 0; i < 5; ++i) {
        Show({ReadingOf("AB123CD", 95, 400 + 20 * i, 100), ReadingOf("KLM4567", 95, 100, 200)});
    }
    EXPECT_THAT(Show({ReadingOf("XY999ZZ", 90, 150, 200)}), ElementsAre("AB123CD"));
    EXPECT_THAT(Show({ReadingOf("XY999ZZ", 90, 150, 200)}), IsEmpty()) << "at the right side";
}

TEST_F(ReadingStreamTest, TheCountryIsThatOfTheReportedText) {
    Reading reading = ReadingOf("AB123CD", 95, 100, 100);
    reading.country = "FRA";
    for (int i = 0; i < 4; ++i) {
        Show({reading});
    }
    EXPECT_EQ(reported.at(0).country, "FRA");
    Show({ReadingOf("A8123CD", 97, 100, 100)});
    EXPECT_EQ(reported.at(0).text, "AB123CD");
    EXPECT_EQ(reported.at(0).country, "FRA");
}

/// The parts of a camera's pictures that are to be searched.
class ChangedPartTest : public ReadingStreamTest {
  protected:
    ChangedPartTest() {
        picture = cv::Mat(368, 640, CV_8UC3, cv::Scalar(90, 100, 110));
        picture.forEach<cv::Vec3b>([](cv::Vec3b& pixel, const int* place) {
            pixel[1] = static_cast<std::uint8_t>(100 + (place[0] * 7 + place[1] * 3) % 40);
        });
        EXPECT_EQ(Part(), whole);
        Show({});
    }

    Region Part() { return stream.ChangedPart({picture.data, picture.cols, picture.rows, picture.step}, region); }

    std::vector<std::string> Follow(std::vector<Reading> readings, const Region& part) {
        std::vector<std::string> texts;
        for (const Reading& reading : stream.Follow({picture.data, picture.cols, picture.rows, picture.step}, region,
                                                    std::move(readings), part)) {
            texts.push_back(reading.text);
        }
        return texts;
    }

    static bool Contains(const Region& part, const cv::Rect& changed) {
        return part.left <= changed.x && part.top <= changed.y && part.right >= changed.br().x &&
               part.bottom >= changed.br().y;
    }

    const Region whole{0, 0, 640, 368};
    const Region nothing{};
};

TEST_F(ChangedPartTest, IsEmptyWhenNothingChanges) {
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(Part(), nothing);
    }
}

TEST_F(ChangedPartTest, IsEverythingEvery25FramesAndEverySecond) {
    for (int i = 1; i <= 100; ++i) {
        EXPECT_EQ(Part(), i % 25 == 0 ? whole : nothing) << i;
    }
    for (int i = 1; i <= 50; ++i) {
        testTime += std::chrono::milliseconds(100);
        EXPECT_EQ(Part(), i % 10 == 0 ? whole : nothing) << i;
    }
}

TEST_F(ChangedPartTest, ContainsTheChangeAndPlatesThatItTouches) {
    const cv::Rect car(200, 96, 50, 30);
    picture(car).setTo(cv::Scalar(200, 200, 200));
    const Region part = Part();
    EXPECT_TRUE(Contains(part, car));
    EXPECT_LT(part.right - part.left, 160);
    EXPECT_EQ(Part(), nothing) << "it was searched";
    Show({ReadingOf("AB123CD", 95, 250, 100)});
    picture(car).setTo(cv::Scalar(20, 20, 20));
    EXPECT_TRUE(Contains(Part(), cv::Rect(250, 100, 120, 20)));
}

TEST_F(ChangedPartTest, FollowsSlowChanges) {
    int searched = 0;
    for (int i = 0; i < 8; ++i) {
        picture(cv::Rect(320, 160, 64, 64)) += cv::Scalar::all(1);
        searched += Part() == nothing ? 0 : 1;
    }
    EXPECT_EQ(searched, 2) << "the changes since the last search count, not those since the last frame";
}

TEST_F(ChangedPartTest, NoiseIsNoChange) {
    cv::RNG random(3);
    const cv::Mat scene = picture.clone();
    cv::Mat noise(picture.size(), CV_16SC3);
    for (int i = 0; i < 10; ++i) {
        random.fill(noise, cv::RNG::NORMAL, 0, 5);
        cv::add(scene, noise, picture, cv::noArray(), CV_8U);
        EXPECT_EQ(Part(), nothing);
    }
}

TEST_F(ChangedPartTest, IsEverythingWhenTheRegionOrTheSizeChanges) {
    region = Region{100, 50, 500, 300};
    EXPECT_EQ(Part(), *region);
    EXPECT_EQ(Part(), nothing);
    region.reset();
    EXPECT_EQ(Part(), whole);
    stream.ForgetPicture();
    EXPECT_EQ(Part(), whole);
    picture = picture(cv::Rect(0, 0, 600, 300)).clone();
    EXPECT_EQ(Part(), (Region{0, 0, 600, 300}));
    picture = picture(cv::Rect(0, 0, 7, 5)).clone();
    EXPECT_EQ(Part(), (Region{0, 0, 7, 5})) << "too small for a square";
    region = Region{-2147483647, -5, 2147483647, 3};
    EXPECT_EQ(Part(), (Region{0, 0, 7, 3}));
}

TEST_F(ChangedPartTest, IsEverythingWithoutConfirmations) {
    ReadingStream independent(1);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(independent.ChangedPart({picture.data, picture.cols, picture.rows, picture.step}, {}), whole);
    }
}

TEST_F(ChangedPartTest, PlatesOfTheFirstFrameStayWhileNothingChanges) {
    const Picture shown{picture.data, picture.cols, picture.rows, picture.step};
    ReadingStream fresh(3, [] { return testTime; });
    EXPECT_EQ(fresh.ChangedPart(shown, {}), whole);
    EXPECT_EQ(fresh.Follow(shown, {}, {ReadingOf("AB123CD", 95, 100, 100)}, whole).size(), 1u);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(fresh.ChangedPart(shown, {}), nothing);
        EXPECT_EQ(fresh.Follow(shown, {}, {}, nothing).size(), 1u) << i;
    }
}

TEST_F(ChangedPartTest, ARepeatedPictureConfirmsNothing) {
    Follow({ReadingOf("AB123CD", 99, 100, 100)}, whole);
    for (int i = 0; i < 20; ++i) {
        EXPECT_THAT(Follow({}, nothing), IsEmpty());
    }
    EXPECT_THAT(Follow({ReadingOf("AB123CD", 99, 100, 100)}, whole), ElementsAre("AB123CD"));
    EXPECT_THAT(Follow({}, nothing), ElementsAre("AB123CD"));
}

// Otherwise the host's tracker takes the next vehicle for the one that it still expects there, or a vehicle that stands
// for the fast one.
TEST_F(ChangedPartTest, NoPlateIsReportedInARepeatedPictureWithAFastOne) {
    picture.setTo(cv::Scalar::all(20));
    EXPECT_THAT(Follow({ReadingOf("AB123CD", 99, 100, 100)}, Part()), IsEmpty());
    for (int i = 1; i < 4; ++i) {
        picture.setTo(cv::Scalar::all(20 + 40 * i));
        EXPECT_THAT(Follow({ReadingOf("AB123CD", 99, 100 + 50 * i, 100)}, Part()), ElementsAre("AB123CD"));
        EXPECT_THAT(Follow({}, Part()), IsEmpty());
        EXPECT_THAT(Follow({ReadingOf("AB123CD", 99, 101 + 50 * i, 100)}, whole), IsEmpty()) << "searched again";
        EXPECT_THAT(Follow({}, Part()), IsEmpty());
    }
    for (int i = 0; i < 10; ++i) {
        EXPECT_THAT(Follow({}, nothing), IsEmpty());
    }
    EXPECT_THAT(Follow({ReadingOf("AB123CD", 99, 251, 100)}, whole), ElementsAre("AB123CD")) << "it has stopped";
    for (int i = 0; i < 5; ++i) {
        EXPECT_THAT(Follow({}, nothing), ElementsAre("AB123CD"));
    }
    for (int i = 0; i < 3; ++i) {
        picture.setTo(cv::Scalar::all(20 + 40 * i));
        Follow({ReadingOf("AB123CD", 99, 251, 100), ReadingOf("KLM4567", 99, 50 * i, 300)}, Part());
    }
    EXPECT_THAT(Follow({}, Part()), IsEmpty());
}

TEST_F(ChangedPartTest, APictureThatChangesElsewhereIsNotARepeatedOne) {
    for (int i = 0; i < 3; ++i) {
        picture.setTo(cv::Scalar::all(20 + 40 * i));
        Follow({ReadingOf("AB123CD", 99, 100 + 50 * i, 100)}, Part());
    }
    for (int i = 0; i < 3; ++i) {
        picture.rowRange(250, 368).setTo(cv::Scalar::all(200 - 40 * i));
        EXPECT_THAT(Follow({}, Part()), ElementsAre("AB123CD"));
    }
}

TEST_F(ChangedPartTest, WhileTheCameraMovesTextsThatStandStillAreNotReported) {
    cv::Mat ground(1000, 640, CV_8UC3);
    cv::theRNG().state = 7;
    cv::randu(ground, 0, 255);
    cv::blur(ground, ground, {40, 40});
    cv::normalize(ground, ground, 0, 255, cv::NORM_MINMAX);
    for (int i = 0; i < 30; ++i) {
        ground.rowRange(20 * i, 20 * i + 368).copyTo(picture);
        std::vector<Reading> readings = {ReadingOf("CAM4NORTH", 99, 100 + i % 2, 40)};
        if (i >= 28) {
            readings.push_back(ReadingOf("AB123CD", 99, 100, 140 + 6 * (i - 28)));
        }
        EXPECT_EQ(Follow(readings, Part()), std::vector<std::string>(i < 29 ? 0 : 1, "AB123CD"));
    }
}

TEST_F(ChangedPartTest, LightThatChangesEverywhereIsNoMovementOfTheCamera) {
    const cv::Mat ground = picture.clone();
    for (int i = 0; i < 4; ++i) {
        picture = ground + cv::Scalar::all(20 * i);
        EXPECT_EQ(Follow({ReadingOf("AB123CD", 99, 100, 100)}, Part()).size(), i == 0 ? 0u : 1u);
    }
}

TEST_F(ChangedPartTest, ASlowPlateIsReportedInRepeatedPictures) {
    for (int i = 0; i < 4; ++i) {
        picture.setTo(cv::Scalar::all(20 + 40 * i));
        Follow({ReadingOf("AB123CD", 99, 100 + 6 * i, 100)}, Part());
        for (int repeated = 0; repeated < 3; ++repeated) {
            EXPECT_EQ(Follow({}, Part()).size(), i == 0 ? 0u : 1u);
        }
    }
}

TEST_F(ChangedPartTest, PlatesElsewhereStay) {
    for (int i = 0; i < 4; ++i) {
        Show({ReadingOf("AB123CD", 95, 100, 100), ReadingOf("KLM4567", 95, 400, 300)});
    }
    const Region part{350, 250, 600, 368};
    for (int i = 0; i < 10; ++i) {
        EXPECT_THAT(Follow({ReadingOf("KLM4567", 95, 400, 300)}, part),
                    testing::UnorderedElementsAre("AB123CD", "KLM4567"));
    }
}

TEST_F(ReadingStreamTest, AMisreadingIsReportedAsTheConfirmedText) {
    for (int i = 0; i < 5; ++i) {
        Show({ReadingOf("AB123CD", 95, 100 + 10 * i, 100)});
    }
    EXPECT_THAT(Show({ReadingOf("A8123CD", 97, 150, 100)}), ElementsAre("AB123CD"));
    EXPECT_EQ(reported[0].corners[0].x, 150);
    EXPECT_NEAR(reported[0].confidence, 95, 1e-9);
}

TEST_F(ReadingStreamTest, AMisreadingBeforeConfirmationIsNotReported) {
    EXPECT_THAT(Show({ReadingOf("A8123CD", 85, 100, 100)}), IsEmpty());
    EXPECT_THAT(Show({ReadingOf("AB123CD", 90, 105, 100)}), IsEmpty());
    EXPECT_THAT(Show({ReadingOf("AB123CD", 90, 110, 100)}), IsEmpty());
    EXPECT_THAT(Show({ReadingOf("AB123CD", 90, 115, 100)}), ElementsAre("AB123CD"));
}

TEST_F(ReadingStreamTest, AnUncertainTextIsNotReported) {
    for (int i = 0; i < 20; ++i) {
        EXPECT_THAT(Show({ReadingOf("ELEKTRO", 70, 100, 100)}), IsEmpty());
    }
}

// Letters only, digits only, short.
const std::vector<std::string> doubtfulTexts{"PERSONAL", "201643", "P250"};

TEST_F(ReadingStreamTest, DoubtfulTextsNeedMoreConfirmation) {
    for (const std::string& text : doubtfulTexts) {
        for (int i = 0; i < 8; ++i) {
            EXPECT_THAT(Show({ReadingOf(text, 98, 400 - 10 * i, 100)}), IsEmpty());
        }
        EXPECT_THAT(Show({ReadingOf(text, 98, 320, 100)}), ElementsAre(text));
    }
}

TEST_F(ReadingStreamTest, DoubtfulTextsNeedAHigherConfidence) {
    for (const std::string& text : doubtfulTexts) {
        for (int i = 0; i < 20; ++i) {
            EXPECT_THAT(Show({ReadingOf(text, 90, 100 + 10 * i, 200)}), IsEmpty());
        }
    }
}

TEST_F(ReadingStreamTest, DoubtfulTextsThatStandStillAreNotReported) {
    for (const std::string& text : doubtfulTexts) {
        for (int i = 0; i < 60; ++i) {
            EXPECT_THAT(Show({ReadingOf(text, 99, 100 + i % 2, 100)}), IsEmpty());
        }
    }
}

TEST_F(ReadingStreamTest, DoubtfulTextsOfDifferentScenesAreNotReported) {
    for (std::uint64_t scene = 1; scene < 4; ++scene) {
        ChangeScene(scene);
        for (const std::string& text : doubtfulTexts) {
            EXPECT_THAT(Show({ReadingOf(text, 99, 100, 100)}), IsEmpty());
        }
    }
}

TEST(ReadingStream, OfTheFirstPicturesOnlySureReadingsAreReported) {
    const cv::Mat picture(360, 640, CV_8UC3, cv::Scalar(90, 100, 110));
    const Picture shown{picture.data, picture.cols, picture.rows, picture.step};
    ReadingStream stream(3);
    const std::vector<Reading> reported =
        stream.Follow(shown, {}, {ReadingOf("AB123CD", 60, 100, 100), ReadingOf("KL456MN", 90, 400, 100)});
    ASSERT_EQ(reported.size(), 1u);
    EXPECT_EQ(reported[0].text, "KL456MN");
}

TEST(ReadingStream, ATextOfTheFirstPictureStaysThatOfItsPlate) {
    const cv::Mat picture(360, 640, CV_8UC3, cv::Scalar(90, 100, 110));
    const Picture shown{picture.data, picture.cols, picture.rows, picture.step};
    ReadingStream stream(3);
    stream.Follow(shown, {}, {ReadingOf("KL456MN", 90, 400, 100)});
    const std::vector<Reading> reported = stream.Follow(shown, {}, {ReadingOf("KKL456MN", 90, 398, 100)});
    ASSERT_EQ(reported.size(), 1u);
    EXPECT_EQ(reported[0].text, "KL456MN");
}

TEST_F(ReadingStreamTest, AlternatingTextsAreNotReported) {
    for (int i = 0; i < 20; ++i) {
        EXPECT_THAT(Show({ReadingOf(i % 2 == 0 ? "AB123CD" : "A8123CD", 90, 100, 100)}), IsEmpty()) << i;
    }
}

TEST_F(ReadingStreamTest, AClearlyLeadingTextReplacesAnEarlierOne) {
    for (int i = 0; i < 3; ++i) {
        Show({ReadingOf("A8123CD", 85, 100, 100)});
    }
    std::vector<std::string> last;
    for (int i = 0; i < 12; ++i) {
        last = Show({ReadingOf("AB123CD", 97, 100, 100)});
    }
    EXPECT_THAT(last, ElementsAre("AB123CD"));
}

TEST_F(ReadingStreamTest, NeighbouringPlatesAreCountedSeparately) {
    for (int i = 0; i < 2; ++i) {
        EXPECT_THAT(Show({ReadingOf("AB123CD", 90, 100, 100), ReadingOf("AB124CD", 90, 400, 100)}), IsEmpty());
    }
    EXPECT_THAT(Show({ReadingOf("AB123CD", 90, 100, 100), ReadingOf("AB124CD", 90, 400, 100)}),
                ElementsAre("AB123CD", "AB124CD"));
}

TEST_F(ReadingStreamTest, AnotherPlateInTheSamePlaceIsCountedSeparately) {
    for (int i = 0; i < 30; ++i) {
        Show({ReadingOf("AB123CD", 90, 100, 100)});
    }
    EXPECT_THAT(Show({ReadingOf("KLM4567", 90, 100, 100)}), IsEmpty());
    EXPECT_THAT(Show({ReadingOf("KLM4567", 90, 100, 100)}), IsEmpty());
    EXPECT_THAT(Show({ReadingOf("KLM4567", 90, 100, 100)}), ElementsAre("KLM4567"));
}

TEST_F(ReadingStreamTest, AHiddenPlateIsRememberedForAWhile) {
    for (int i = 0; i < 3; ++i) {
        Show({ReadingOf("AB123CD", 95, 100, 100)});
    }
    for (int i = 0; i < 40; ++i) {
        Show({});
    }
    EXPECT_THAT(Show({ReadingOf("A8123CD", 95, 100, 100)}), ElementsAre("AB123CD"));
    for (int i = 0; i < 60; ++i) {
        Show({});
    }
    EXPECT_THAT(Show({ReadingOf("AB123CD", 95, 100, 100)}), IsEmpty());
}

TEST_F(ReadingStreamTest, PicturesOfDifferentScenesAreIndependent) {
    for (std::uint64_t scene = 1; scene < 12; ++scene) {
        ChangeScene(scene);
        EXPECT_THAT(Show({ReadingOf("AB123CD", 40, 100, 100)}), ElementsAre("AB123CD"));
    }
}

TEST_F(ReadingStreamTest, PicturesOfDifferentSizesAreIndependent) {
    for (int i = 0; i < 12; ++i) {
        picture = cv::Mat(361 + i, 640, CV_8UC3, cv::Scalar(90, 100, 110));
        EXPECT_THAT(Show({ReadingOf("AB123CD", 40, 100, 100)}), ElementsAre("AB123CD"));
    }
}

TEST_F(ReadingStreamTest, AChangeOfBrightnessIsNotAnotherScene) {
    for (int i = 0; i < 6; ++i) {
        picture.setTo(cv::Scalar::all(i % 2 == 0 ? 60 : 130));
        EXPECT_THAT(Show({ReadingOf("AB123CD", 40, 100, 100)}), IsEmpty());
    }
}

TEST_F(ReadingStreamTest, PicturesWithTheSameTextAreAStream) {
    const auto showScene = [&](std::uint64_t scene, const std::string& another) {
        ChangeScene(scene);
        return Show({ReadingOf("AB123CD", 90, 100, 100), ReadingOf(another, 75, 300, 300)});
    };
    EXPECT_THAT(showScene(1, "KL456MN"), testing::Contains("KL456MN"));
    EXPECT_THAT(showScene(2, "QR789ST"), testing::Not(testing::Contains("QR789ST")));
    EXPECT_THAT(showScene(3, "UV135WX"), testing::Not(testing::Contains("UV135WX")));
}

TEST_F(ReadingStreamTest, AnEstablishedStreamSurvivesASceneChange) {
    for (int i = 0; i < 10; ++i) {
        Show({ReadingOf("AB123CD", 95, 100, 100)});
    }
    ChangeScene(5);
    EXPECT_THAT(Show({ReadingOf("AB123CD", 95, 100, 100)}), ElementsAre("AB123CD"));
    EXPECT_THAT(Show({ReadingOf("KLM4567", 95, 100, 200)}), ElementsAre("AB123CD"));
}

TEST_F(ReadingStreamTest, PlatesCutOffAtTheSidesAreNotReported) {
    const std::vector<Reading> cutOff = {ReadingOf("AB123", 95, 1, 100), ReadingOf("123CD", 95, 640 - 122, 200)};
    for (int i = 0; i < 6; ++i) {
        EXPECT_THAT(Show(cutOff), IsEmpty());
    }
    region = Region{100, 0, 400, 360};
    for (int i = 0; i < 6; ++i) {
        EXPECT_THAT(Show({ReadingOf("AB123", 95, 110, 100), ReadingOf("123CD", 95, 270, 200)}), IsEmpty());
    }
    std::vector<std::string> inside;
    for (int i = 0; i < 3; ++i) {
        inside = Show({ReadingOf("AB123CD", 95, 113, 100)});
    }
    EXPECT_THAT(inside, ElementsAre("AB123CD"));
    ChangeScene(1);
    region.reset();
    picture = picture(cv::Rect(0, 0, 639, 360)).clone();
    EXPECT_THAT(Show(cutOff), testing::SizeIs(2)) << "a single picture needs no confirmation";
}

TEST_F(ReadingStreamTest, OneConfirmationReportsEveryReading) {
    ReadingStream open(1);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(
            open.Follow({picture.data, picture.cols, picture.rows, picture.step}, {}, {ReadingOf("AB123CD", 40, 1, 1)})
                .size(),
            1u);
    }
}

TEST_F(ReadingStreamTest, AcceptsPicturesOfOnePixel) {
    const std::uint8_t pixel[3] = {1, 2, 3};
    for (int i = 0; i < 3; ++i) {
        stream.Follow({pixel, 1, 1, 3}, {}, {ReadingOf("AB123CD", 95, 0, 0)});
    }
    EXPECT_THAT(stream.Follow({pixel, 1, 1, 3}, {}, {ReadingOf("AB123CD", 95, 0, 0)}), IsEmpty()) << "it is cut off";
}

// Texts that were never dropped would outvote the right one and use ever more memory.
TEST_F(ReadingStreamTest, APlateIsReportedAfterThousandsOfMisreadings) {
    for (int misreading = 0; misreading < 2000; ++misreading) {
        Show({ReadingOf("AB123" + std::to_string(100 + misreading), 95, 100, 100)});
    }
    int pictures = 0;
    while (pictures < 500 && Show({ReadingOf("AB123CD", 95, 100, 100)}).empty()) {
        ++pictures;
    }
    EXPECT_LT(pictures, 200);
    EXPECT_EQ(reported.at(0).text, "AB123CD");
}

}  // namespace
}  // namespace plate_reading
