#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/evaluate/pictures.h"
#include "tests/host/checksum.h"
#include "tests/host/process.h"
#include "tests/host/temporary_folder.h"

namespace evaluate_test {
namespace {

using host_test::Finished;
using host_test::HostProcess;
using host_test::TemporaryFolder;
using Json = nlohmann::json;
using testing::HasSubstr;

std::string Contents(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream contents;
    contents << stream.rdbuf();
    return contents.str();
}

std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

Finished Evaluate(const TemporaryFolder& folder, std::vector<std::string> arguments,
                  const std::string& engine = EVALUATE_TEST_ENGINE) {
    arguments.insert(arguments.begin(), {folder.Path(""), "--engine", engine});
    HostProcess process({.arguments = arguments, .environment = {{"VEXLANE_SCRIPT", folder.Path("script.json")}}});
    return process.Wait();
}

Json PlateOf(const std::string& text, double confidence, int left, int top, int right, int bottom) {
    return {{"text", text},
            {"confidence", confidence},
            {"corners", {{left, top}, {left, bottom}, {right, top}, {right, bottom}}}};
}

/// Writes a truth of four pictures in two folders, one with two plates and one missing.
void WriteFourPictures(const TemporaryFolder& folder) {
    folder.MakeFolder("far away");
    folder.MakeFolder("near");
    folder.Write("far away/1.ppm", Ppm(64, 48, 1));
    folder.Write("far away/2.ppm", Ppm(64, 48, 2));
    folder.Write("near/1.ppm", Ppm(40, 30, 3));
    folder.Write("truth.tsv", truthHeader +
                                  "far away/1.ppm\t10\t10\t20\t6\tAB1234\r\n"
                                  "far away/2.ppm\t10\t10\t20\t6\tOQ1000\r\n"
                                  "far away/2.ppm\t40\t30\t20\t6\tXY99\r\n"
                                  "near/1.ppm\t5\t5\t20\t6\tCD5678\r\n"
                                  "near/none.ppm\t5\t5\t20\t6\tEF\r\n");
    const Json script{{"journal", "calls.jsonl"},
                      {"refused_ranges", {0, 1}},
                      {"frames",
                       {{{"plates", {PlateOf("AB1234", 540, 11, 10, 29, 16), PlateOf("ZZ", 20, 40, 10, 58, 16)}}},
                        {{"plates", {PlateOf("0Q1O00", 300, 10, 10, 30, 16)}}},
                        {{"plates", {PlateOf("CD5679", 480, 5, 5, 25, 11)}}}}}};
    folder.Write("script.json", script.dump());
}

TEST(Program, PrintsTheFiguresOfEveryFolderAndTheTotal) {
    const TemporaryFolder folder;
    WriteFourPictures(folder);
    const Finished run = Evaluate(folder, {"--json", folder.Path("figures.json")});
    EXPECT_EQ(run.status, 1) << "a picture is missing";
    EXPECT_EQ(run.errors, "evaluate: cannot read \"near/none.ppm\": No such file or directory\n");

    const Json figures = Json::parse(Contents(folder.Path("figures.json")));
    const Json& far = figures["groups"]["far away"];
    EXPECT_EQ(far["pictures"], 2);
    EXPECT_EQ(far["unreadable_pictures"], 0);
    EXPECT_EQ(far["plates"], 3);
    EXPECT_EQ(far["localised"], 2);
    EXPECT_EQ(far["exact"], 1);
    EXPECT_EQ(far["exact_folded"], 2);
    EXPECT_EQ(far["one_error_at_most"], 1);
    EXPECT_EQ(far["characters"], 16);
    EXPECT_EQ(far["character_errors"], 0 + 2 + 4);
    EXPECT_DOUBLE_EQ(far["character_error_rate"], 6.0 / 16);
    EXPECT_EQ(far["other_reports"], 1);
    EXPECT_DOUBLE_EQ(far["other_reports_per_picture"], 0.5);
    EXPECT_GT(far["milliseconds_per_picture"], 0);
    const Json& near = figures["groups"]["near"];
    EXPECT_EQ(near["pictures"], 2);
    EXPECT_EQ(near["unreadable_pictures"], 1);
    EXPECT_EQ(near["localised"], 1);
    EXPECT_EQ(near["exact"], 0);
    EXPECT_EQ(near["one_error_at_most"], 1);
    EXPECT_EQ(near["character_errors"], 1 + 2);
    const Json& total = figures["total"];
    EXPECT_EQ(total["pictures"], 4);
    EXPECT_EQ(total["plates"], 5);
    EXPECT_EQ(total["localised"], 3);
    EXPECT_EQ(total["exact_folded"], 2);
    EXPECT_EQ(figures["groups"].size(), 2u);

    const std::vector<std::string> table = LinesOf(run.output);
    ASSERT_EQ(table.size(), 4u) << run.output;
    EXPECT_THAT(table[1], testing::ContainsRegex("^far away +2 +3 +2 +66.7 % +1 +33.3 % +2 +66.7 % +1 +33.3 % "
                                                 "+37.5 % +0.50 +[0-9.]+$"));
    EXPECT_THAT(table[2], testing::ContainsRegex("^near +2 +2 +1 +50.0 % +0 +0.0 % +0 +0.0 % +1 +50.0 % "
                                                 "+37.5 % +0.00 +[0-9.]+$"));
    EXPECT_THAT(table[3], testing::ContainsRegex("^total +4 +5 +3 +60.0 % +1 +20.0 % "));
}

TEST(Program, WritesALineForEveryPlate) {
    const TemporaryFolder folder;
    WriteFourPictures(folder);
    Evaluate(folder, {"--details", folder.Path("details.tsv")});
    const std::vector<std::string> lines = LinesOf(Contents(folder.Path("details.tsv")));
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[0], "file\ttruth\tread\tconfidence\tcorners\tlocalised\tmilliseconds\tothers\tcountry");
    EXPECT_THAT(lines[1], testing::MatchesRegex("far away/1.ppm\tAB1234\tAB1234\t90.0\t11,10 11,16 29,10 29,16\tyes\t"
                                                "[0-9.]+\tZZ@40,10\t"));
    EXPECT_THAT(lines[2], HasSubstr("far away/2.ppm\tOQ1000\t0Q1O00\t50.0\t"));
    EXPECT_THAT(lines[3], testing::MatchesRegex("far away/2.ppm\tXY99\t\t\t\tno\t[0-9.]+\t\t"));
    EXPECT_THAT(lines[4], HasSubstr("near/1.ppm\tCD5678\tCD5679\t80.0\t"));
    EXPECT_EQ(lines[5], "near/none.ppm\tEF\t\t\t\tunreadable\t\t\t");
}

TEST(Program, PassesPixelsUnchangedToTheEngine) {
    const TemporaryFolder folder;
    WriteFourPictures(folder);
    Evaluate(folder, {});
    std::vector<Json> calls;
    for (const std::string& line : LinesOf(Contents(folder.Path("calls.jsonl")))) {
        calls.push_back(Json::parse(line));
    }
    // Two refused ranges and an accepted one while the program waits for the server, then a range and a picture each.
    ASSERT_EQ(calls.size(), 3u + 3 * 2);
    EXPECT_EQ(calls[2]["answer"], true);
    const Json& range = calls[7];
    EXPECT_EQ(range["call"], "SetPlateRange");
    EXPECT_EQ(range["minimum_width"], 0);
    EXPECT_EQ(range["maximum_width"], 40);
    const Json& call = calls[8];
    EXPECT_EQ(call["call"], "Recognize2");
    EXPECT_EQ(call["image"]["width"], 40);
    EXPECT_EQ(call["image"]["height"], 30);
    EXPECT_EQ(call["image"]["bytes_per_pixel"], 3);
    EXPECT_EQ(call["image"]["row_stride"], 120);
    const std::vector<std::uint8_t> pixels = BgrPixels(40, 30, 3);
    std::ostringstream checksum;
    checksum << std::hex << std::setw(16) << std::setfill('0') << host_test::Checksum(pixels.data(), pixels.size());
    EXPECT_EQ(call["image"]["checksum"], checksum.str());
    EXPECT_EQ(call["region"], nullptr);
    EXPECT_EQ(call["first_argument_is_null"], true);
    EXPECT_EQ(call["flags"], 0);
}

TEST(Program, PassesTheRegionToTheEngine) {
    const TemporaryFolder folder;
    WriteFourPictures(folder);
    Evaluate(folder, {"--region", "25,50,75,100"});
    const Json call = Json::parse(LinesOf(Contents(folder.Path("calls.jsonl"))).back());
    EXPECT_EQ(call["region"], (Json{{"left", 10}, {"top", 15}, {"right", 30}, {"bottom", 30}}));
}

TEST(Program, ReportsErrorsInOneLine) {
    const TemporaryFolder folder;
    const auto errors = [](const Finished& run) {
        EXPECT_EQ(run.status, 2) << run.output;
        EXPECT_EQ(run.output, "");
        EXPECT_EQ(LinesOf(run.errors).size(), 1u) << run.errors;
        return run.errors;
    };
    EXPECT_THAT(errors(Evaluate(folder, {})), HasSubstr("truth.tsv\", which must list the plates in the pictures"));
    folder.Write("truth.tsv", truthHeader + "a.ppm\t1\t2\t3\t4\tAB\n");
    folder.Write("script.json", "{}");
    folder.Write("libRecon64.so", "no library");
    EXPECT_EQ(errors(Evaluate(folder, {}, folder.Path("none.so"))),
              "evaluate: cannot load the engine \"" + folder.Path("none.so") + "\": no such file\n");
    EXPECT_THAT(errors(Evaluate(folder, {}, folder.Path("libRecon64.so"))),
                HasSubstr("cannot load the engine \"" + folder.Path("libRecon64.so") + "\": "));
    EXPECT_THAT(errors(Evaluate(folder, {"--json", folder.Path("none/figures.json")})),
                HasSubstr("cannot write \"" + folder.Path("none/figures.json") + "\": No such file or directory"));
    EXPECT_THAT(errors(Evaluate(folder, {"--server", folder.Path("none.exe")})),
                HasSubstr("cannot start the server \"" + folder.Path("none.exe") + "\": No such file"));
    EXPECT_THAT(errors(Evaluate(folder, {"--threads", "many"})), HasSubstr("--threads"));
}

TEST(Program, RefusesTooManyPlatesFromTheEngine) {
    const TemporaryFolder folder;
    folder.Write("a.ppm", Ppm(8, 8, 1));
    folder.Write("truth.tsv", truthHeader + "a.ppm\t1\t2\t3\t4\tAB\n");
    for (const char* const count : {"6", "-1"}) {
        folder.Write("script.json", R"({"frames": [{"count": )" + std::string(count) + "}]}");
        const Finished run = Evaluate(folder, {});
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.errors,
                  "evaluate: \"a.ppm\": the engine returned " + std::string(count) + " plates; the limit is 5\n");
    }
}

TEST(Program, EvaluatesEveryPictureOnSeveralThreads) {
    const TemporaryFolder folder;
    std::string truth = truthHeader;
    for (int number = 0; number < 12; ++number) {
        const std::string name = std::to_string(number) + ".ppm";
        folder.Write(name, Ppm(number % 3 == 0 ? 64 : 32, 24, number));
        truth += name + "\t2\t2\t20\t6\tAB1234\n";
    }
    folder.Write("truth.tsv", truth);
    folder.Write("script.json",
                 Json{{"repeat", true}, {"frames", {{{"plates", {PlateOf("AB1234", 540, 2, 2, 22, 8)}}}}}}.dump());
    const Finished run = Evaluate(folder, {"--threads", "3", "--json", folder.Path("figures.json")});
    EXPECT_EQ(run.status, 0) << run.errors;
    const Json total = Json::parse(Contents(folder.Path("figures.json")))["total"];
    EXPECT_EQ(total["pictures"], 12);
    EXPECT_EQ(total["exact"], 12);
    EXPECT_EQ(total["other_reports"], 0);
}

}  // namespace
}  // namespace evaluate_test
