// Compares the confusion with what scripts/evaluate-clips counts of the same events.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/report/synthetic.h"
#include "tests/support/child_process.h"
#include "tools/report/confusion.h"

namespace report {
namespace {

using recording::Json;

std::int64_t Milliseconds(std::mt19937& random, std::uint32_t limit) {
    return static_cast<std::int64_t>(random() % limit);
}

/// A plate of few different characters, so that many are alike.
std::string RandomPlate(std::mt19937& random, const std::string& characters) {
    std::string plate;
    for (std::size_t left = 4 + random() % 3; left > 0; --left) {
        plate.push_back(characters[random() % characters.size()]);
    }
    return plate;
}

TEST(Agreement, TheScriptCountsTheSame) {
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / "report_agreement";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directory(folder);
    std::mt19937 random(5);
    std::ofstream truth(folder / "truth.tsv");
    truth << "clip\tplate\tfirst_s\tlast_s\n";
    std::vector<std::pair<std::string, std::int64_t>> seen;
    for (int number = 0; number < 150; ++number) {
        const std::int64_t first = Milliseconds(random, 300'000);
        const std::string plate = RandomPlate(random, number % 5 == 0 ? "AB01?" : "AB01OQI");
        truth << "gate\t" << (number % 20 == 0 ? "unreadable" : plate) << '\t' << static_cast<double>(first) / 1000
              << '\t' << static_cast<double>(first + Milliseconds(random, 3000)) / 1000 << '\n';
        seen.emplace_back(plate, first);
    }
    truth.close();
    recording::Recording run = report_test::RunWith(0);
    run.frames.push_back(report_test::PlainFrame(0, 0, 0));
    std::ofstream lines(folder / "events.jsonl");
    for (int number = 0; number < 300; ++number) {
        const auto& [plate, first] = seen[random() % seen.size()];
        const std::string text = number % 2 == 0 ? plate : RandomPlate(random, "AB01OQI");
        const std::int64_t time = number % 3 == 0 ? Milliseconds(random, 300'000) : first + Milliseconds(random, 5000);
        run.frames[0].events.push_back(report_test::PlateEvent(0, time, text));
        lines << run.frames[0].events.back().value.dump() << '\n';
    }
    lines.close();

    test_support::ChildProcess script({.program = REPORT_TEST_EVALUATE_CLIPS,
                                       .arguments = {folder.string(), "--events", (folder / "events.jsonl").string(),
                                                     "--json", (folder / "figures.json").string()}});
    const test_support::Finished finished = script.Wait();
    ASSERT_EQ(finished.status, 0) << finished.errors;
    const Json figures = Json::parse(std::ifstream(folder / "figures.json"))["all"];
    const Confusion confusion = Compare(PlateEventsOf(run), ReadTruth(folder / "truth.tsv", "gate"), {0});
    std::filesystem::remove_all(folder);
    EXPECT_EQ(figures["vehicles"], confusion.vehicles);
    EXPECT_EQ(figures["exact"], confusion.exact);
    EXPECT_EQ(figures["alike"], confusion.alike);
    EXPECT_EQ(figures["missed"], confusion.missed);
    EXPECT_EQ(figures["twice"], confusion.twice);
    EXPECT_EQ(figures["of none"], confusion.ofNone);
    double delays = 0.0;
    for (const Json& delay : figures["delays"]) {
        delays += 1000 * delay.get<double>();
    }
    ASSERT_TRUE(confusion.meanDelayMs);
    EXPECT_NEAR(delays / static_cast<double>(figures["delays"].size()), *confusion.meanDelayMs, 0.01);
    EXPECT_GT(confusion.exact, 5U);
    EXPECT_GT(confusion.missed, 5U);
    EXPECT_GT(confusion.twice, 5U);
    EXPECT_GT(confusion.ofNone, 5U);
}

}  // namespace
}  // namespace report
