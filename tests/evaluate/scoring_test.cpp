#include "tools/evaluate/scoring.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace plate_evaluation {
namespace {

using testing::ElementsAre;

/// Returns an upright report with these edges.
Report ReportAt(int left, int top, int right, int bottom, const std::wstring& text = L"AB1234") {
    return {text, 90, {{{left, top}, {left, bottom}, {right, top}, {right, bottom}}}};
}

TruePlate PlateAt(int x, int y, int width, int height, const std::wstring& text = L"AB1234") {
    return {{x, y, width, height}, text};
}

PlateScore ScoreOf(const std::wstring& truth, const std::wstring& read) {
    return ScorePicture({PlateAt(100, 100, 100, 20, truth)}, {ReportAt(100, 100, 200, 120, read)}).plates.at(0);
}

TEST(Localised, IncludesTheWidthLimits) {
    const Rectangle place{100, 100, 100, 20};
    // The centre stays within half a pixel of x = 150.
    EXPECT_TRUE(IsLocalised(ReportAt(128, 100, 173, 120), place)) << "45 of 100";
    EXPECT_FALSE(IsLocalised(ReportAt(128, 100, 172, 120), place)) << "44 of 100";
    EXPECT_TRUE(IsLocalised(ReportAt(83, 100, 218, 120), place)) << "135 of 100";
    EXPECT_FALSE(IsLocalised(ReportAt(82, 100, 218, 120), place)) << "136 of 100";
}

TEST(Localised, ExcludesHalfAPixelBeyondAWidthLimit) {
    const Rectangle place{100, 100, 100, 20};
    Report report = ReportAt(128, 100, 173, 120);
    report.corners[3].x -= 1;  // the lower edge is 44 wide, the mean 44.5
    EXPECT_FALSE(IsLocalised(report, place));
    report = ReportAt(83, 100, 218, 120);
    report.corners[3].x += 1;
    EXPECT_FALSE(IsLocalised(report, place));
}

TEST(Localised, TheWidthIsTheMeanOfBothEdges) {
    Report report = ReportAt(110, 100, 190, 120);
    report.corners = {{{150, 100}, {105, 120}, {150, 100}, {195, 120}}};  // no upper edge, a lower one of 90
    EXPECT_TRUE(IsLocalised(report, {100, 100, 100, 20}));
    report.corners[3].x = 194;
    EXPECT_FALSE(IsLocalised(report, {100, 100, 100, 20}));
}

TEST(Localised, IncludesCentresOnTheBorder) {
    const Rectangle place{100, 100, 100, 20};
    EXPECT_TRUE(IsLocalised(ReportAt(50, 105, 150, 115), place)) << "centre at x = 100";
    EXPECT_TRUE(IsLocalised(ReportAt(150, 105, 250, 115), place)) << "centre at x = 200";
    EXPECT_TRUE(IsLocalised(ReportAt(100, 90, 200, 110), place)) << "centre at y = 100";
    EXPECT_TRUE(IsLocalised(ReportAt(100, 110, 200, 130), place)) << "centre at y = 120";
    EXPECT_FALSE(IsLocalised(ReportAt(49, 105, 150, 115), place)) << "centre at x = 99.5";
    EXPECT_FALSE(IsLocalised(ReportAt(150, 105, 251, 115), place)) << "centre at x = 200.5";
    EXPECT_FALSE(IsLocalised(ReportAt(100, 89, 200, 110), place)) << "centre at y = 99.5";
    EXPECT_FALSE(IsLocalised(ReportAt(100, 110, 200, 131), place)) << "centre at y = 120.5";
}

TEST(Localised, ExcludesMirroredCorners) {
    EXPECT_FALSE(IsLocalised(ReportAt(200, 100, 100, 120), {100, 100, 100, 20}));
}

TEST(Localised, CornersFarOutsideAPictureDoNotOverflow) {
    constexpr int far = 2147483647;
    EXPECT_FALSE(IsLocalised(ReportAt(-far, -far, far, far), {100, 100, 100, 20}));
    EXPECT_TRUE(IsLocalised(ReportAt(0, 0, far, far), {0, 0, far, far}));
}

TEST(Picture, WithoutAReportEveryCharacterIsWrong) {
    const PictureScore score = ScorePicture({PlateAt(100, 100, 100, 20)}, {});
    ASSERT_EQ(score.plates.size(), 1u);
    const PlateScore& plate = score.plates[0];
    EXPECT_FALSE(plate.report.has_value());
    EXPECT_FALSE(plate.isExact || plate.isExactFolded || plate.hasOneErrorAtMost);
    EXPECT_EQ(plate.characters, 6);
    EXPECT_EQ(plate.characterErrors, 6);
    EXPECT_THAT(score.otherReports, ElementsAre());
}

TEST(Picture, ACorrectTextElsewhereDoesNotCount) {
    const PictureScore score = ScorePicture({PlateAt(100, 100, 100, 20)}, {ReportAt(400, 100, 500, 120)});
    EXPECT_FALSE(score.plates.at(0).report.has_value());
    EXPECT_FALSE(score.plates.at(0).isExact);
    EXPECT_EQ(score.plates.at(0).characterErrors, 6);
    EXPECT_THAT(score.otherReports, ElementsAre(0));
}

TEST(Picture, TheMostConfidentOfTwoReportsCounts) {
    const PictureScore score =
        ScorePicture({PlateAt(100, 100, 100, 20)},
                     {ReportAt(400, 0, 500, 20), ReportAt(100, 100, 200, 120, L"XX"), ReportAt(100, 100, 200, 120)});
    EXPECT_EQ(score.plates.at(0).report, 1u);
    EXPECT_FALSE(score.plates.at(0).isExact) << "though the less sure one has the right text";
    EXPECT_THAT(score.otherReports, ElementsAre(0, 2));
}

TEST(Picture, EachPlateGetsItsOwnReport) {
    const PictureScore score = ScorePicture(
        {PlateAt(100, 100, 100, 20, L"ONE"), PlateAt(400, 100, 100, 20, L"TWO"), PlateAt(700, 100, 100, 20, L"THREE")},
        {ReportAt(400, 100, 500, 120, L"TWO"), ReportAt(100, 100, 200, 120, L"ONE")});
    ASSERT_EQ(score.plates.size(), 3u);
    EXPECT_EQ(score.plates[0].report, 1u);
    EXPECT_EQ(score.plates[1].report, 0u);
    EXPECT_FALSE(score.plates[2].report.has_value());
    EXPECT_TRUE(score.plates[0].isExact && score.plates[1].isExact && !score.plates[2].isExact);
    EXPECT_THAT(score.otherReports, ElementsAre());
}

TEST(Picture, OneReportIsNotUsedForTwoPlates) {
    const PictureScore score =
        ScorePicture({PlateAt(100, 100, 100, 20), PlateAt(100, 100, 100, 20)}, {ReportAt(100, 100, 200, 120)});
    EXPECT_TRUE(score.plates.at(0).report.has_value());
    EXPECT_FALSE(score.plates.at(1).report.has_value());
}

TEST(Text, LookAlikesAreEqualOnlyWhenFolded) {
    const PlateScore score = ScoreOf(L"AQ0B1", L"A0OBI");
    EXPECT_FALSE(score.isExact);
    EXPECT_TRUE(score.isExactFolded);
    EXPECT_FALSE(score.hasOneErrorAtMost);
    EXPECT_EQ(score.characterErrors, 3);
    EXPECT_FALSE(ScoreOf(L"AB8", L"ABB").isExactFolded) << "8 and B are not folded";
    EXPECT_TRUE(ScoreOf(L"AB8", L"AB8").isExactFolded);
}

TEST(Text, OneErrorIsOneCharacterChangedMissingOrAdded) {
    for (const wchar_t* const read : {L"AB1234", L"AB1294", L"AB134", L"AB12344", L"XAB1234"}) {
        EXPECT_TRUE(ScoreOf(L"AB1234", read).hasOneErrorAtMost) << read;
    }
    for (const wchar_t* const read : {L"AB9294", L"B134", L"AB2134", L"XXAB1234"}) {
        EXPECT_FALSE(ScoreOf(L"AB1234", read).hasOneErrorAtMost) << read;
    }
}

TEST(Text, EveryCharacterOfAnEmptyTextIsWrong) {
    const PlateScore score = ScoreOf(L"AB1234", L"");
    EXPECT_TRUE(score.report.has_value());
    EXPECT_FALSE(score.isExact || score.isExactFolded || score.hasOneErrorAtMost);
    EXPECT_EQ(score.characterErrors, 6);
}

TEST(Text, AnEmptyTruthHasNoErrors) {
    EXPECT_EQ(ScoreOf(L"", L"AB12").characterErrors, 0);
    EXPECT_EQ(ScoreOf(L"", L"").characters, 0);
}

TEST(Text, ErrorsAreLimitedToTheTruthsLength) {
    EXPECT_EQ(ScoreOf(L"ABC", L"9999999999").characterErrors, 3);
}

TEST(Figures, AddUpOverPicturesAndGroups) {
    Figures one;
    one.Add(ScorePicture({PlateAt(100, 100, 100, 20), PlateAt(400, 100, 100, 20, L"TWO")},
                         {ReportAt(100, 100, 200, 120), ReportAt(0, 0, 50, 10), ReportAt(400, 100, 500, 120, L"TW0")}),
            10.0);
    one.Add(ScorePicture({PlateAt(100, 100, 100, 20)}, {}), std::nullopt);
    Figures other;
    other.Add(ScorePicture({PlateAt(100, 100, 100, 20)}, {ReportAt(100, 100, 200, 120, L"A9999")}), 20.0);
    Figures total;
    total.Add(one);
    total.Add(other);
    EXPECT_EQ(total.pictures, 3);
    EXPECT_EQ(total.unreadablePictures, 1);
    EXPECT_EQ(total.plates, 4);
    EXPECT_EQ(total.localised, 3);
    EXPECT_EQ(total.exact, 1);
    EXPECT_EQ(total.exactFolded, 2);
    EXPECT_EQ(total.oneErrorAtMost, 2);
    EXPECT_EQ(total.characters, 6 + 3 + 6 + 6);
    EXPECT_EQ(total.characterErrors, 0 + 1 + 6 + 5);
    EXPECT_DOUBLE_EQ(total.CharacterErrorRate(), 12.0 / 21);
    EXPECT_EQ(total.otherReports, 1);
    EXPECT_DOUBLE_EQ(total.OtherReportsPerPicture(), 1.0 / 3);
    EXPECT_DOUBLE_EQ(total.MillisecondsPerPicture(), 15.0) << "of the two that could be read";
}

TEST(Figures, AreZeroWithoutPictures) {
    EXPECT_EQ(Figures().CharacterErrorRate(), 0);
    EXPECT_EQ(Figures().OtherReportsPerPicture(), 0);
    EXPECT_EQ(Figures().MillisecondsPerPicture(), 0);
}

}  // namespace
}  // namespace plate_evaluation
