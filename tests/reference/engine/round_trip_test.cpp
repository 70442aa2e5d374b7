// Data on its way from the engine's caller to the reader and back.

#include <atomic>
#include <limits>

#include "tests/reference/engine/engine_fixture.h"

namespace {

using namespace reading_engine_test;
using plate_reading::Region;
using plate_reading::WidthRange;
using scripted_reader::DescriptionOf;

class RoundTrip : public ReadingEngine {
  protected:
    RunningService service;
};

TEST_F(RoundTrip, TransfersEveryByteInAnySizeAndLayout) {
    ASSERT_TRUE(SetPlateRange(1, 2));
    unsigned seed = 0;
    // Sizes go up and down, so that memory is both reallocated and reused.
    for (const std::uint32_t width : {1u, 2u, 3u, 7u, 64u, 333u, 1920u, 17u, 640u}) {
        for (const std::uint32_t height : {1u, 2u, 5u, 48u, 211u}) {
            for (const std::uint32_t gap : {0u, 1u, 13u, 4096u}) {
                TestPicture picture(width, height, gap, ++seed);
                EXPECT_TRUE(ReturnsReadings(Recognition(&picture.image),
                                            DescriptionOf(picture.ForReader(), std::nullopt, WidthRange{1, 2})))
                    << width << "x" << height << "+" << gap;
            }
        }
    }
}

TEST_F(RoundTrip, ReadsNothingAfterTheLastRowsPixels) {
    ASSERT_TRUE(SetPlateRange(1, 2));
    TestPicture picture(5, 3, 100);
    // The address sanitizer reports a read past the end.
    std::vector<std::uint8_t> exact(picture.pixels.begin(), picture.pixels.end() - 100);
    picture.image.pixels = exact.data();
    EXPECT_TRUE(ReturnsReadings(Recognition(&picture.image),
                                DescriptionOf(picture.ForReader(), std::nullopt, WidthRange{1, 2})));
}

TEST_F(RoundTrip, DoesNotChangeThePicture) {
    ASSERT_TRUE(SetPlateRange(1, 2));
    TestPicture picture(31, 9, 5);
    const std::vector<std::uint8_t> before = picture.pixels;
    const IMG image = picture.image;
    EXPECT_EQ(Recognition(&picture.image).count, 2);
    EXPECT_EQ(picture.pixels, before);
    EXPECT_EQ(std::memcmp(&picture.image, &image, sizeof image), 0);
}

TEST_F(RoundTrip, ClipsTheRegionToThePicture) {
    constexpr int least = std::numeric_limits<int>::min();
    constexpr int most = std::numeric_limits<int>::max();
    struct Case {
        tagRECT given;
        Region wanted;
    };
    ASSERT_TRUE(SetPlateRange(1, 2));
    TestPicture picture(100, 80);
    for (const Case& one : std::initializer_list<Case>{{{10, 20, 30, 40}, {10, 20, 30, 40}},
                                                       {{0, 0, 100, 80}, {0, 0, 100, 80}},
                                                       {{-5, -6, 1, 1}, {0, 0, 1, 1}},
                                                       {{99, 79, 200, 300}, {99, 79, 100, 80}},
                                                       {{least, least, most, most}, {0, 0, 100, 80}}}) {
        tagRECT region = one.given;
        EXPECT_TRUE(ReturnsReadings(Recognition(&picture.image, &region),
                                    DescriptionOf(picture.ForReader(), one.wanted, WidthRange{1, 2})))
            << one.given.left << " " << one.given.top;
    }
}

TEST_F(RoundTrip, FindsNothingInAnEmptyRegion) {
    constexpr int least = std::numeric_limits<int>::min();
    constexpr int most = std::numeric_limits<int>::max();
    ASSERT_TRUE(SetPlateRange(1, 2));
    TestPicture picture(100, 80);
    for (tagRECT region : std::initializer_list<tagRECT>{{10, 10, 10, 20},
                                                         {10, 10, 20, 10},
                                                         {20, 10, 10, 20},
                                                         {100, 0, 200, 80},
                                                         {0, 80, 100, 90},
                                                         {-10, 0, 0, 80},
                                                         {0, 0, 0, 0},
                                                         {most, most, least, least}}) {
        EXPECT_TRUE(ReturnsReadings(Recognition(&picture.image, &region), {})) << region.left << " " << region.top;
    }
}

TEST_F(RoundTrip, PassesTheLastRangeToTheReader) {
    constexpr int least = std::numeric_limits<int>::min();
    constexpr int most = std::numeric_limits<int>::max();
    RunOnNewThread([] {
        TestPicture picture(20, 20);
        ASSERT_TRUE(WaitUntil([&] { return Recognition(&picture.image).count == 2; })) << "the frame did not connect";
        EXPECT_TRUE(ReturnsReadings(Recognition(&picture.image),
                                    DescriptionOf(picture.ForReader(), std::nullopt, std::nullopt)));
        for (const WidthRange range : std::initializer_list<WidthRange>{{0, 0}, {64, 256}, {300, 20}, {least, most}}) {
            ASSERT_TRUE(SetPlateRange(range.minimum, range.maximum));
            EXPECT_TRUE(
                ReturnsReadings(Recognition(&picture.image), DescriptionOf(picture.ForReader(), std::nullopt, range)));
        }
    });
}

TEST_F(RoundTrip, ReturnsAtMostTheFirstFiveReadings) {
    ASSERT_TRUE(SetPlateRange(1, 2));
    TestPicture picture(20, 20);
    for (int count = 0; count < 8; ++count) {
        picture.SetCommand(scripted_reader::Count, static_cast<std::uint8_t>(count));
        std::vector<plate_reading::Reading> wanted;
        for (int number = 0; number < std::min(count, 5); ++number) {
            wanted.push_back(scripted_reader::Numbered(number));
        }
        EXPECT_TRUE(ReturnsReadings(Recognition(&picture.image), wanted));
    }
}

TEST_F(RoundTrip, OmitsInvalidTextsAndClampsConfidences) {
    ASSERT_TRUE(SetPlateRange(1, 2));
    TestPicture picture(20, 20);
    picture.SetCommand(scripted_reader::ReturnMixed);
    std::vector<plate_reading::Reading> wanted = scripted_reader::MixedReadings();
    wanted.erase(wanted.begin(), wanted.begin() + 3);
    wanted[0].confidence = 0;
    wanted[1].confidence = 100;
    wanted[2].confidence = 0;
    EXPECT_TRUE(ReturnsReadings(Recognition(&picture.image), wanted));
}

TEST_F(RoundTrip, WritesEveryFieldAtItsOffset) {
    ASSERT_TRUE(SetPlateRange(1, 2));
    TestPicture picture(20, 20);
    picture.SetCommand(scripted_reader::Count, 3);
    const Recognition recognition(&picture.image);
    ASSERT_EQ(recognition.count, 3);
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&recognition.plates[2]);
    EXPECT_EQ(std::memcmp(bytes, "PLATE0012\0\0\0\0\0\0", 16), 0);
    EXPECT_EQ(std::memcmp(bytes + 16, "ISO3166:GBR", 12), 0);
    double sum = 0;
    std::memcpy(&sum, bytes + 28, sizeof sum);
    EXPECT_EQ(sum, 88 * 9);
    EXPECT_EQ(CountryCodeOf(recognition.plates[1]), "");
    int corners[8] = {};
    std::memcpy(corners, bytes + 128, sizeof corners);
    EXPECT_THAT(corners, testing::ElementsAre(2, 1, 2, 2, 2, 3, 2, 4));
}

TEST_F(RoundTrip, FindsNothingWhenTheReaderThrows) {
    ASSERT_TRUE(SetPlateRange(1, 2));
    TestPicture picture(20, 20);
    for (const std::uint8_t what : {std::uint8_t{0}, std::uint8_t{1}}) {
        picture.SetCommand(scripted_reader::Throw, what);
        EXPECT_TRUE(ReturnsReadings(Recognition(&picture.image), {}));
        picture.SetCommand(scripted_reader::Count, 1);
        EXPECT_EQ(Recognition(&picture.image).count, 1) << "the connection has ended";
    }
}

TEST_F(RoundTrip, FindsNothingInAnInvalidPicture) {
    ASSERT_TRUE(SetPlateRange(1, 2));
    EXPECT_TRUE(ReturnsReadings(Recognition(nullptr), {}));
    const auto expectNothing = [](auto change) {
        TestPicture picture(20, 20);
        change(picture.image);
        EXPECT_TRUE(ReturnsReadings(Recognition(&picture.image), {}));
    };
    constexpr std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
    expectNothing([](IMG& image) { image.pixels = nullptr; });
    for (const std::uint32_t side : {0u, 16385u, 0x55555556u, 0x80000000u, most}) {
        expectNothing([side](IMG& image) { image.width = side; });
        expectNothing([side](IMG& image) { image.height = side; });
        expectNothing([side](IMG& image) {
            image.width = side;
            image.height = side;
            image.rowStride = most;
        });
    }
    // Each side is within its limit, but the area is not.
    expectNothing([](IMG& image) {
        image.width = 16384;
        image.height = 16384;
        image.rowStride = 16384 * 3;
    });
    for (const std::uint32_t stride : {0u, 1u, 59u}) {
        expectNothing([stride](IMG& image) { image.rowStride = stride; });
    }
    for (const std::uint32_t bytes : {0u, 1u, 2u, 4u, most}) {
        expectNothing([bytes](IMG& image) { image.bytesPerPixel = bytes; });
    }
    TestPicture picture(20, 20);
    EXPECT_EQ(Recognize2(nullptr, &picture.image, nullptr, nullptr, 0), 0);
    EXPECT_EQ(Recognition(&picture.image).count, 2);
}

TEST_F(RoundTrip, ReturnsEachThreadItsOwnReadings) {
    std::vector<std::thread> threads;
    std::atomic<int> right = 0;
    constexpr int threadCount = 8;
    constexpr int frameCount = 40;
    for (unsigned thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back([thread, &right] {
            for (unsigned frame = 0; frame < frameCount; ++frame) {
                const auto range = static_cast<int>(thread * 1000 + frame);
                TestPicture picture(16 + thread, 16 + frame, 0, thread * 1000 + frame);
                EXPECT_TRUE(SetPlateRange(range, range + 1));
                right += ReturnsReadings(Recognition(&picture.image),
                                         DescriptionOf(picture.ForReader(), std::nullopt, WidthRange{range, range + 1}))
                             ? 1
                             : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, threadCount * frameCount);
}

}  // namespace
