#include "tools/evaluate/report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

namespace plate_evaluation {
namespace {

using Json = nlohmann::ordered_json;
using testing::HasSubstr;

PictureResult ResultFor(const TruePicture& picture, std::vector<Report> reports) {
    PictureResult result;
    result.reports = std::move(reports);
    result.milliseconds = 1.5;
    result.score = ScorePicture(picture.plates, result.reports);
    return result;
}

const Report wideReport{L"\u4EACA1", 88.25, {{{0, 0}, {0, 10}, {40, 0}, {40, 10}}}};

TEST(Summary, ListsFoldersInInputOrder) {
    const std::vector<TruePicture> pictures{{"us/1", {}}, {"br/1", {}}, {"us/2", {}}, {"3", {}}};
    const Summary summary = Summarise(pictures, std::vector<PictureResult>(4));
    ASSERT_EQ(summary.groups.size(), 3u);
    EXPECT_EQ(summary.groups[0].first, "us");
    EXPECT_EQ(summary.groups[0].second.pictures, 2);
    EXPECT_EQ(summary.groups[1].first, "br");
    EXPECT_EQ(summary.groups[2].first, ".");
    EXPECT_EQ(summary.total.pictures, 4);
}

TEST(Details, AreUtf8WithoutExtraLinesOrColumns) {
    const TruePicture picture{"a\nb/1.jpg", {{{0, 0, 40, 10}, L"\u4EACA1"}}};
    const std::string details = ToDetails({picture}, {ResultFor(picture, {wideReport})});
    EXPECT_THAT(details, HasSubstr("\na b/1.jpg\t\xE4\xBA\xAC"
                                   "A1\t\xE4\xBA\xAC"
                                   "A1\t88.2\t0,0 0,10 40,0 40,10\tyes\t1.50\t\t\n"));
}

TEST(Table, ColumnsAreAlignedForAnyTexts) {
    const TruePicture picture{"\xC3\xBC\xC3\xBC/1.jpg", {{{0, 0, 40, 10}, L"\u4EACA1"}}};
    const std::string table = ToTable(Summarise({picture}, {ResultFor(picture, {wideReport})}));
    std::vector<std::size_t> lengths;
    std::istringstream stream(table);
    for (std::string line; std::getline(stream, line);) {
        lengths.push_back(line.size() - static_cast<std::size_t>(std::count(line.begin(), line.end(), '\xC3')));
    }
    EXPECT_THAT(lengths, testing::ElementsAre(lengths.at(0), lengths.at(0), lengths.at(0))) << table;
}

TEST(Figures, AsJsonAreNamed) {
    const TruePicture picture{"eu/1.jpg", {{{0, 0, 40, 10}, L"\u4EACA1"}}};
    const Json json = Json::parse(ToJson(Summarise({picture}, {ResultFor(picture, {wideReport})})));
    EXPECT_EQ(json["groups"]["eu"], json["total"]);
    EXPECT_EQ(json["total"].dump(),
              R"({"pictures":1,"unreadable_pictures":0,"plates":1,"localised":1,"exact":1,"exact_folded":1,)"
              R"("one_error_at_most":1,"characters":3,"character_errors":0,"character_error_rate":0.0,)"
              R"("other_reports":0,"other_reports_per_picture":0.0,"milliseconds_per_picture":1.5})");
}

}  // namespace
}  // namespace plate_evaluation
