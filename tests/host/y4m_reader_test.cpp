#include "tools/host/y4m_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "tests/host/pictures.h"
#include "tools/host/failure.h"

namespace plate_host {
namespace {

using testing::HasSubstr;

/// Returns bytes in portions of a given size, and optionally an error after them.
class MemorySource final : public ByteSource {
  public:
    MemorySource(std::string bytes, std::size_t portion, std::string newError = {})
        : bytes_(std::move(bytes)), portion_(portion), errorAtEnd_(std::move(newError)) {}

    std::size_t Read(void* buffer, std::size_t size) override {
        const std::size_t count = std::min({size, portion_, bytes_.size() - position_});
        std::memcpy(buffer, bytes_.data() + position_, count);
        position_ += count;
        hasFailed_ = count == 0;
        return count;
    }
    std::string Error() const override { return hasFailed_ ? errorAtEnd_ : std::string(); }
    std::optional<std::uint64_t> Size() const override { return bytes_.size(); }

  private:
    const std::string bytes_;
    const std::size_t portion_;
    const std::string errorAtEnd_;
    std::size_t position_ = 0;
    bool hasFailed_ = false;
};

std::string FailureOf(const std::string& line) {
    try {
        ParseY4mHeader(line);
    } catch (const Failure& failure) {
        return failure.what();
    }
    return {};
}

TEST(Y4mHeader, HasSizeRateAndColour) {
    const Y4mHeader header = ParseY4mHeader("YUV4MPEG2 W640 H480 F30000:1001 Ip A1:1 C420mpeg2 XYSCSS=420MPEG2");
    EXPECT_EQ(header.width, 640u);
    EXPECT_EQ(header.height, 480u);
    EXPECT_EQ(header.rateNumerator, 30000u);
    EXPECT_EQ(header.rateDenominator, 1001u);
    EXPECT_TRUE(header.colour);
}

TEST(Y4mHeader, DefaultsTo420AndRate25) {
    for (const char* line : {"YUV4MPEG2 W4 H2", "YUV4MPEG2  H2 W4 F0:0 "}) {
        const Y4mHeader header = ParseY4mHeader(line);
        EXPECT_TRUE(header.colour);
        EXPECT_EQ(header.rateNumerator, 25u);
        EXPECT_EQ(header.rateDenominator, 1u);
    }
}

TEST(Y4mHeader, AcceptsTheVariantsOf420AndMono) {
    for (const char* variant : {"420", "420jpeg", "420mpeg2", "420paldv"}) {
        EXPECT_TRUE(ParseY4mHeader(std::string("YUV4MPEG2 W4 H2 C") + variant).colour) << variant;
    }
    EXPECT_FALSE(ParseY4mHeader("YUV4MPEG2 W4 H2 Cmono").colour);
    for (const char* variant : {"", "422", "444", "411", "420p10", "mono16", "444alpha", "420JPEG"}) {
        EXPECT_THAT(FailureOf(std::string("YUV4MPEG2 W4 H2 C") + variant), HasSubstr("only 8-bit 4:2:0")) << variant;
    }
}

TEST(Y4mHeader, RefusesInvalidLines) {
    EXPECT_THAT(FailureOf(""), HasSubstr("does not begin"));
    EXPECT_THAT(FailureOf("YUV4MPEG"), HasSubstr("does not begin"));
    EXPECT_THAT(FailureOf("YUV4MPEG23 W4 H4"), HasSubstr("does not begin"));
    EXPECT_THAT(FailureOf("YUV4MPEG2"), HasSubstr("no picture size"));
    EXPECT_THAT(FailureOf("YUV4MPEG2 W4"), HasSubstr("no picture size"));
    EXPECT_THAT(FailureOf("YUV4MPEG2 W4 H4 C420\r"), HasSubstr("has changed its bytes"));
    for (const char* width : {"W", "W0", "W1", "W-4", "W4x", "W 4", "W16385", "W99999999999999999999"}) {
        EXPECT_THAT(FailureOf(std::string("YUV4MPEG2 H4 ") + width), HasSubstr("bad width")) << width;
    }
    for (const char* rate : {"F25", "F", "F:", "F25:", "F25:0", "F0:1", "F-25:1", "F25:1:1", "F4294967296:1"}) {
        EXPECT_THAT(FailureOf(std::string("YUV4MPEG2 W4 H4 ") + rate), HasSubstr("bad frame rate")) << rate;
    }
}

TEST(Y4mFrameTime, IsTheFrameNumberTimes1000DividedByTheRateRoundedDown) {
    Y4mHeader header;
    header.rateNumerator = 30000;
    header.rateDenominator = 1001;
    EXPECT_EQ(Y4mFrameTime(header, 0), 0u);
    EXPECT_EQ(Y4mFrameTime(header, 1), 33u);
    EXPECT_EQ(Y4mFrameTime(header, 3), 100u);
    EXPECT_EQ(Y4mFrameTime(header, 30000), 1001000u);
    header.rateNumerator = 100000000;
    header.rateDenominator = 100000000;
    EXPECT_EQ(Y4mFrameTime(header, 99999999), 99999999000u);
    EXPECT_EQ(Y4mFrameTime(header, 5000000000), 5000000000000u);
}

TEST(Y4mReader, ReadsTheSamePicturesFromPortionsOfAnySize) {
    const std::string stream = host_test::Y4mStream(6, 4, 3);
    for (const std::size_t portion : {std::size_t{1}, std::size_t{7}, std::size_t{100000}}) {
        Y4mReader reader(std::make_unique<MemorySource>(stream, portion), "test");
        for (int frame = 0; frame < 3; ++frame) {
            Picture picture;
            ASSERT_TRUE(reader.Read(picture));
            const std::vector<std::uint8_t> expected = host_test::MakeI420(6, 4, frame);
            EXPECT_THAT(expected, testing::ElementsAreArray(picture.bytes.get(), picture.size)) << portion;
            EXPECT_EQ(picture.timeMs, static_cast<std::uint64_t>(frame) * 40);
        }
        Picture none;
        EXPECT_FALSE(reader.Read(none));
        EXPECT_EQ(reader.Damage(), "");
    }
}

TEST(Y4mReader, ParametersAfterFrameAreSkipped) {
    const std::vector<std::uint8_t> bytes = host_test::MakeI420(2, 2, 0);
    const std::string stream =
        host_test::Y4mHeaderLine(2, 2) + "FRAME Ip XCOMMENT\n" + std::string(bytes.begin(), bytes.end());
    Y4mReader reader(std::make_unique<MemorySource>(stream, 5), "test");
    Picture picture;
    ASSERT_TRUE(reader.Read(picture));
    EXPECT_THAT(bytes, testing::ElementsAreArray(picture.bytes.get(), picture.size));
}

TEST(Y4mReader, EveryCutInsideAFrameIsReported) {
    const std::string header = host_test::Y4mHeaderLine(2, 2);
    const std::string frame = host_test::Y4mFrame(2, 2, 0);
    for (std::size_t length = 0; length < frame.size(); ++length) {
        Y4mReader reader(std::make_unique<MemorySource>(header + frame + frame.substr(0, length), 3), "test");
        Picture picture;
        ASSERT_TRUE(reader.Read(picture));
        EXPECT_FALSE(reader.Read(picture));
        EXPECT_EQ(reader.Damage(), length == 0 ? "" : "frame 1 is cut off") << length;
        EXPECT_FALSE(reader.Read(picture));
    }
}

TEST(Y4mReader, AFailedReadIsReportedWithTheSystemsText) {
    const std::string stream = host_test::Y4mStream(2, 2, 1);
    Y4mReader reader(std::make_unique<MemorySource>(stream, 100, "Input/output error"), "test");
    Picture picture;
    ASSERT_TRUE(reader.Read(picture));
    EXPECT_FALSE(reader.Read(picture));
    EXPECT_EQ(reader.Damage(), "frame 1 cannot be read (Input/output error)");
}

TEST(Y4mReader, EstimatesThePicturesFromTheSize) {
    Y4mReader reader(std::make_unique<MemorySource>(host_test::Y4mStream(7, 5, 12), 100), "test");
    EXPECT_EQ(reader.PictureCount(), 12u);
}

}  // namespace
}  // namespace plate_host
