// The command "plate-host validate": its options and its output.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "tests/host/process.h"
#include "tools/host/failure.h"
#include "tools/host/options.h"

namespace host_test {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

Finished Validate(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(),
                     {"validate", "--plugin", VALIDATE_TEST_LIBRARY, "--engine", VALIDATE_TEST_ENGINE});
    return RunHost(arguments);
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

TEST(Options, ValidateHasDefaults) {
    const plate_host::Options options = plate_host::ParseOptions({"validate"});
    EXPECT_EQ(options.command, plate_host::Command::Validate);
    EXPECT_EQ(options.validate.level, 1);
    EXPECT_EQ(options.validate.seed, 1u);
    EXPECT_EQ(options.validate.timeLimit, 20);
    EXPECT_FALSE(options.validate.json);
}

TEST(Options, ALevelIsOneToThree) {
    EXPECT_EQ(plate_host::ParseOptions({"validate", "--level", "3"}).validate.level, 3);
    EXPECT_THROW(plate_host::ParseOptions({"validate", "--level", "0"}), plate_host::Failure);
    EXPECT_THROW(plate_host::ParseOptions({"validate", "--level", "4"}), plate_host::Failure);
}

TEST(Listing, NamesEachCaseByASentenceOfItsOwn) {
    const Finished run = Validate({"--list", "--level", "2", "--seed", "17"});
    EXPECT_EQ(run.status, 0) << run.errors;
    const std::vector<std::string> lines = Lines(run.output);
    EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()).size(), lines.size());
    EXPECT_THAT(lines, testing::Contains("1  the module is null before initialization"));
    EXPECT_THAT(lines, testing::Contains("2  20,000 random calls of seed 17 keep the contract"));
    EXPECT_LT(Lines(Validate({"--list"}).output).size(), lines.size());
}

TEST(Results, AreOneLineEachAndASummary) {
    const Finished run = Validate({"--case", "the module is null"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output,
              "ok     the module is null before initialization\n"
              "ok     the module is null for a null host\n"
              "ok     the module is null after finalization\n");
    EXPECT_THAT(run.errors, MatchesRegex("plate-host: 3 cases, none fails, .* s\n"));
}

TEST(Results, SayWhyACaseFails) {
    const std::string missing = VALIDATE_TEST_INCOMPLETE_LIBRARY;
    const Finished run = RunHost({"validate", "--plugin", missing, "--engine", VALIDATE_TEST_ENGINE, "--json", "--case",
                                  "the module is null before initialization"});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.output,
                StartsWith(R"({"case":"the module is null before initialization","level":1,"result":"fails",)"
                           R"("reason":"the library does not export FinalizeModule","seconds":)"));
    EXPECT_THAT(run.errors, MatchesRegex("plate-host: 1 case, 1 fails, .* s\n"));
}

TEST(Refusals, AreOneLine) {
    for (const auto& [arguments, part] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"--case", "no such sentence"}, "no case of level 1 contains \"no such sentence\""},
             {{"--engine", "none.so"}, "cannot find the scripted engine"},
             {{"--plugin", "none.so"}, "cannot find the library"}}) {
        std::vector<std::string> words = {"validate"};
        if (arguments.front() != "--engine") {
            words.insert(words.end(), {"--engine", VALIDATE_TEST_ENGINE});
        }
        if (arguments.front() != "--plugin") {
            words.insert(words.end(), {"--plugin", VALIDATE_TEST_LIBRARY});
        }
        words.insert(words.end(), arguments.begin(), arguments.end());
        const Finished run = RunHost(words);
        EXPECT_EQ(run.status, 2);
        EXPECT_EQ(run.output, "");
        EXPECT_EQ(std::count(run.errors.begin(), run.errors.end(), '\n'), 1) << run.errors;
        EXPECT_THAT(run.errors, HasSubstr(part));
    }
}

}  // namespace
}  // namespace host_test
