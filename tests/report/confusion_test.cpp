#include "tools/report/confusion.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace report {
namespace {

using testing::HasSubstr;

PlateEvent EventAt(std::int64_t timeMs, const std::string& text, int channel = 0) {
    PlateEvent event;
    event.channel = channel;
    event.timeMs = event.firstMs = event.lastMs = timeMs;
    event.text = text;
    return event;
}

std::vector<Outcome> OutcomesOf(const Confusion& confusion) {
    std::vector<Outcome> outcomes;
    for (const Match& match : confusion.matches) {
        outcomes.push_back(match.outcome);
    }
    return outcomes;
}

TEST(Confusion, DistanceIsAShareOfTheLongerText) {
    EXPECT_EQ(DistanceOf("AB12CDE", "AB12CDE"), 0.0);
    EXPECT_EQ(DistanceOf("AB12", "AB1"), 0.25);
    EXPECT_EQ(DistanceOf("AB12", "ABX2Y"), 0.4);
    EXPECT_EQ(DistanceOf("OQI", "001"), 0.0);
    EXPECT_EQ(DistanceOf("A?C", "ABC"), 0.0);
    EXPECT_EQ(DistanceOf("ABC", "A?C"), 1.0 / 3);
    EXPECT_EQ(DistanceOf("", ""), 0.0);
    EXPECT_EQ(DistanceOf("", "A"), 1.0);
    EXPECT_EQ(DistanceOf("\xC3\x84\xC3\x96", "\xC3\x84X"), 0.5);
}

TEST(Confusion, EachVehicleAndEventIsCountedOnce) {
    const std::vector<TrueVehicle> truth = {{std::nullopt, "AB12CDE", 1000, 3000},
                                            {std::nullopt, "XY99ZZZ", 5000, 7000},
                                            {std::nullopt, "KLM456", 8000, 9000},
                                            {std::nullopt, "R2?8TY", 8000, 9000},
                                            {std::nullopt, "unreadable", 0, 9000}};
    const std::vector<PlateEvent> events = {EventAt(1500, "AB12CDE"), EventAt(2500, "AB12CDX"), EventAt(8500, "KLM4S6"),
                                            EventAt(8600, "R208TY"), EventAt(4500, "QQQQQQQ")};
    const Confusion confusion = Compare(events, truth, {0});
    EXPECT_EQ(confusion.vehicles, 3U);
    EXPECT_EQ(confusion.exact, 1U);
    EXPECT_EQ(confusion.alike, 1U);
    EXPECT_EQ(confusion.missed, 1U);
    EXPECT_EQ(confusion.twice, 1U);
    EXPECT_EQ(confusion.ofNone, 1U);
    EXPECT_EQ(confusion.meanDelayMs, 500.0);
    EXPECT_EQ(OutcomesOf(confusion), (std::vector{Outcome::Right, Outcome::Twice, Outcome::Missed, Outcome::Wrong,
                                                  Outcome::Uncounted, Outcome::OfNone}));
    EXPECT_EQ(confusion.matches[1].event, 1U);
    EXPECT_EQ(confusion.matches[2].event, std::nullopt);
    EXPECT_EQ(confusion.matches[2].vehicle->plate, "XY99ZZZ");
    EXPECT_EQ(confusion.matches[5].vehicle, std::nullopt);
}

TEST(Confusion, AnEventIsOfAVehicleInViewWithASecondOfSlack) {
    const std::vector<TrueVehicle> truth = {{std::nullopt, "AB12CDE", 5000, 6000}};
    for (const auto& [time, isInView] : {std::pair{3999, false}, {4000, true}, {7000, true}, {7001, false}}) {
        EXPECT_EQ(Compare({EventAt(time, "AB12CDE")}, truth, {0}).exact, isInView ? 1U : 0U) << time;
    }
    PlateEvent passing = EventAt(1000, "AB12CDE");
    passing.lastMs = 4500;
    EXPECT_EQ(Compare({passing}, truth, {0}).exact, 1U);
}

TEST(Confusion, HalfOfTheCharactersMustAgree) {
    const std::vector<TrueVehicle> truth = {{std::nullopt, "ABCD", 0, 1000}};
    EXPECT_EQ(Compare({EventAt(0, "ABXX")}, truth, {0}).ofNone, 0U);
    EXPECT_EQ(Compare({EventAt(0, "AXXX")}, truth, {0}).ofNone, 1U);
}

TEST(Confusion, AVehicleWithoutAChannelIsExpectedInEach) {
    const std::vector<PlateEvent> events = {EventAt(0, "AB12CDE", 3)};
    const Confusion inAll = Compare(events, {{std::nullopt, "AB12CDE", 0, 1000}}, {3, 4});
    EXPECT_EQ(inAll.vehicles, 2U);
    EXPECT_EQ(inAll.missed, 1U);
    EXPECT_EQ(Compare(events, {{3, "AB12CDE", 0, 1000}}, {3, 4}).exact, 1U);
    EXPECT_EQ(Compare(events, {{4, "AB12CDE", 0, 1000}}, {3, 4}).missed, 1U);
}

class Truth : public testing::Test {
  protected:
    std::vector<TrueVehicle> Read(const std::string& text, const std::string& clip = "gate") const {
        std::ofstream(file_, std::ios::binary) << text;
        return ReadTruth(file_, clip);
    }
    std::string ErrorOf(const std::string& text) const {
        try {
            Read(text);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "none";
    }
    void TearDown() override { std::filesystem::remove(file_); }

    const std::filesystem::path file_ =
        std::filesystem::temp_directory_path() /
        ("report_truth_" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()) + ".tsv");
};

TEST_F(Truth, ColumnsAreFoundByName) {
    const auto vehicles =
        Read("last_s\tplate\tnote\tfirst_s\tchannel\r\n4.25\tAB12CDE\tfast\t1\t2\r\n\r\n\tXY?\t\t\t\n");
    ASSERT_EQ(vehicles.size(), 2U);
    EXPECT_EQ(vehicles[0].plate, "AB12CDE");
    EXPECT_EQ(vehicles[0].firstMs, 1000);
    EXPECT_EQ(vehicles[0].lastMs, 4250);
    EXPECT_EQ(vehicles[0].channel, 2);
    EXPECT_EQ(vehicles[1].channel, std::nullopt);
    EXPECT_EQ(vehicles[1].lastMs, 0);
}

TEST_F(Truth, OnlyTheClipsLinesAreRead) {
    const char* const text = "clip\tplate\tfirst_s\tlast_s\nroad\tAA\t0\t1\ngate\tBB\t0\t1\n";
    const auto vehicles = Read(text);
    ASSERT_EQ(vehicles.size(), 1U);
    EXPECT_EQ(vehicles[0].plate, "BB");
    EXPECT_THROW(Read(text, "other"), std::runtime_error);
}

TEST_F(Truth, ErrorsNameTheLine) {
    EXPECT_THAT(ErrorOf("plate\tfirst_s\tlast_s\nAA\t0\t1\nBB\tx\t1\n"), HasSubstr("line 3: \"x\" is not a number"));
    EXPECT_THAT(ErrorOf("plate\tfirst_s\tlast_s\nAA\t1e300\t1\n"), HasSubstr("is not a time in seconds"));
    EXPECT_THAT(ErrorOf("plate\tfirst_s\nAA\t0\n"), HasSubstr("line 2 has not all of the columns"));
    EXPECT_THAT(ErrorOf("plate\tfirst_s\tlast_s\n"), HasSubstr("has no vehicle"));
    EXPECT_THAT(ErrorOf(""), HasSubstr("cannot read the vehicles in"));
}

}  // namespace
}  // namespace report
