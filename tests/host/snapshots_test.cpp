#include "tools/host/snapshots.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/host/held_frames.h"

namespace plate_host {
namespace {

EventRecord EventWith(const std::string& text, std::int64_t timeMs = 7600, int channel = 2) {
    EventRecord event;
    event.channel = channel;
    event.name = "event";
    event.timeMs = timeMs;
    event.targets.push_back({{{"lp_wnum", text}}, nullptr});
    return event;
}

Picture PictureOf(std::uint64_t timeMs, std::uint8_t luminance) {
    Picture picture = MakePicture(2, 2, false);
    picture.timeMs = timeMs;
    std::fill_n(picture.bytes.get(), picture.size, luminance);
    return picture;
}

TEST(SnapshotName, ContainsChannelNumberTimeAndText) {
    EXPECT_EQ(SnapshotNameOf(EventWith("DE8898GL"), 17), "channel2_0017_000007600ms_DE8898GL.png");
    EXPECT_EQ(SnapshotNameOf(EventWith("AB-1", 0, 0), 12345), "channel0_12345_000000000ms_AB-1.png");
}

TEST(SnapshotName, CannotLeaveTheFolder) {
    EXPECT_EQ(SnapshotNameOf(EventWith("../../etc/x"), 1), "channel2_0001_000007600ms_______etc_x.png");
    EXPECT_EQ(SnapshotNameOf(EventWith("a\\b:c*\n\"d"), 1), "channel2_0001_000007600ms_a_b_c___d.png");
    EXPECT_EQ(SnapshotNameOf(EventWith(std::string("a\0b", 3)), 1), "channel2_0001_000007600ms_a_b.png");
}

TEST(SnapshotName, ReplacesEachInvalidCharacterWithOneSign) {
    EXPECT_EQ(SnapshotNameOf(EventWith("\xE4\xBA\xAC"
                                       "A1\xF0\x9F\x9A\x97"),
                             1),
              "channel2_0001_000007600ms__A1_.png");
    EXPECT_EQ(SnapshotNameOf(EventWith("\xC3(\xFFz"), 1), "channel2_0001_000007600ms____z.png") << "invalid UTF-8";
}

TEST(SnapshotName, StaysShort) {
    EXPECT_EQ(SnapshotNameOf(EventWith(std::string(5000, 'A')), 1),
              "channel2_0001_000007600ms_" + std::string(32, 'A') + ".png");
}

TEST(SnapshotName, ContainsTheEventsNameWithoutAText) {
    EventRecord event = EventWith("");
    EXPECT_EQ(SnapshotNameOf(event, 1), "channel2_0001_000007600ms_event.png");
    event.name = "DEBUG_FIGURES";
    event.targets.clear();
    event.timeMs = -5;
    EXPECT_EQ(SnapshotNameOf(event, 1), "channel2_0001_000000000ms_DEBUG_FIGURES.png");
}

TEST(SnapshotTargets, AreReadFromTheEvent) {
    EventRecord event;
    event.targets.push_back(
        {{{"lp_wnum", "AB12"}, {"confidence", 94}, {"lpf_x1", 10}, {"lpf_y1", 20}, {"lpf_x3", 30}, {"lpf_y3", 40}},
         Json::array({{{"x", 1}, {"y", 2}, {"width", 30}, {"height", 10}, {"time", 0}},
                      {{"x", 2147483647}, {"y", -3}, {"width", 2147483647}, {"height", 0}}})});
    event.targets.push_back({{{"second", true}}, nullptr});
    event.targets.push_back({{{"lp_wnum", "X\ny"}, {"lpf_x1", 1}, {"lpf_y1", "text"}}, nullptr});
    const std::vector<SnapshotTarget> targets = SnapshotTargetsOf(event);
    ASSERT_EQ(targets.size(), 2u) << "there is nothing to draw for the second";
    EXPECT_EQ(targets[0].label, "AB12  94 %");
    ASSERT_TRUE(targets[0].plate.has_value());
    EXPECT_EQ(targets[0].plate->left, 10);
    EXPECT_EQ(targets[0].plate->top, 20);
    EXPECT_EQ(targets[0].plate->right, 30);
    EXPECT_EQ(targets[0].plate->bottom, 40);
    ASSERT_EQ(targets[0].track.size(), 2u);
    EXPECT_EQ(targets[0].track[0].x, 16);
    EXPECT_EQ(targets[0].track[0].y, 7);
    EXPECT_EQ(targets[0].track[1].x, 2147483647);
    EXPECT_EQ(targets[0].track[1].y, -3);
    EXPECT_EQ(targets[1].label, "X y");
    EXPECT_FALSE(targets[1].plate.has_value()) << "one of its values is not a number, two are missing";
}

TEST(HeldFrames, ReturnsTheFrameOfAChannelAndTimeUntilItsRelease) {
    HeldFrames heldFrames;
    const Picture one = PictureOf(40, 1);
    const Picture other = PictureOf(40, 2);
    const Picture later = PictureOf(80, 3);
    heldFrames.Add(0, one);
    heldFrames.Add(1, other);
    heldFrames.Add(0, later);
    const auto luminance = [&heldFrames](int channel, std::uint64_t time) {
        const std::optional<Picture> copy = heldFrames.Copy(channel, time);
        return copy ? int{copy->bytes[0]} : -1;
    };
    EXPECT_EQ(luminance(0, 40), 1);
    EXPECT_EQ(luminance(1, 40), 2);
    EXPECT_EQ(luminance(0, 80), 3);
    EXPECT_EQ(luminance(1, 80), -1);
    heldFrames.Remove(0, one);
    EXPECT_EQ(luminance(0, 40), -1);
    EXPECT_EQ(luminance(1, 40), 2);
}

TEST(HeldFrames, ReturnsTheNewestOfSeveralFramesWithOneTime) {
    HeldFrames heldFrames;
    const Picture first = PictureOf(40, 1);
    const Picture second = PictureOf(40, 2);
    heldFrames.Add(0, first);
    heldFrames.Add(0, second);
    EXPECT_EQ(heldFrames.Copy(0, 40)->bytes[0], 2);
    heldFrames.Remove(0, second);
    EXPECT_EQ(heldFrames.Copy(0, 40)->bytes[0], 1) << "only the one that came back has gone";
}

}  // namespace
}  // namespace plate_host
