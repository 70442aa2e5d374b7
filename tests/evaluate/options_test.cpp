#include "tools/evaluate/options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "tools/evaluate/failure.h"

namespace plate_evaluation {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

Options Parse(const std::vector<const char*>& words) {
    std::vector<const char*> line{"evaluate"};
    std::copy(words.begin(), words.end(), std::back_inserter(line));
    return ParseOptions(static_cast<int>(line.size()), line.data());
}

std::string ErrorOf(const std::vector<const char*>& words) {
    try {
        Parse(words);
    } catch (const Failure& failure) {
        return failure.what();
    }
    return "none";
}

TEST(Options, AreReadFromTheCommandLine) {
    const Options options = Parse({"my folder",
                                   "--engine",
                                   "e.so",
                                   "--server",
                                   "s",
                                   "--server-argument=--templates",
                                   "--server-argument",
                                   "eu",
                                   "--threads",
                                   "3",
                                   "--width-range",
                                   "5,40",
                                   "--region",
                                   "10,20,90,100",
                                   "--details",
                                   "d.tsv",
                                   "--json",
                                   "j.json",
                                   "--wait",
                                   "0.25"});
    EXPECT_FALSE(options.isHelpPrinted);
    EXPECT_EQ(options.folder, "my folder");
    EXPECT_EQ(options.engine, "e.so");
    EXPECT_EQ(options.server, "s");
    EXPECT_THAT(options.serverArguments, ElementsAre("--templates", "eu"));
    EXPECT_EQ(options.settings.threads, 3);
    EXPECT_EQ(options.settings.widths.minimum, 5);
    EXPECT_EQ(options.settings.widths.maximum, 40);
    ASSERT_TRUE(options.settings.region.has_value());
    EXPECT_EQ(options.settings.region->left, 10);
    EXPECT_EQ(options.settings.region->top, 20);
    EXPECT_EQ(options.settings.region->right, 90);
    EXPECT_EQ(options.settings.region->bottom, 100);
    EXPECT_EQ(options.details, "d.tsv");
    EXPECT_EQ(options.json, "j.json");
    EXPECT_EQ(options.settings.timeout, std::chrono::milliseconds(250));
}

TEST(Options, HaveDefaults) {
    const Options options = Parse({"folder", "--engine", "e.so"});
    EXPECT_EQ(options.settings.threads, 1);
    EXPECT_EQ(options.settings.widths.minimum, 0);
    EXPECT_EQ(options.settings.widths.maximum, 100);
    EXPECT_FALSE(options.settings.region.has_value());
    EXPECT_TRUE(options.server.empty() && options.details.empty() && options.json.empty());
}

TEST(Options, TheLastValueIsUsed) {
    EXPECT_EQ(Parse({"folder", "--engine", "one", "--server", "s", "--engine", "two"}).engine, "two");
    EXPECT_EQ(Parse({"folder", "--engine", "one", "--server", "s", "--server", "t"}).server, "t");
}

TEST(Options, ErrorsNameTheOption) {
    EXPECT_THAT(ErrorOf({"--engine", "e.so"}), HasSubstr("folder is required"));
    EXPECT_THAT(ErrorOf({"folder"}), HasSubstr("--engine is required"));
    EXPECT_THAT(ErrorOf({"folder", "--engine", "e", "--threads", "0"}), HasSubstr("--threads"));
    EXPECT_THAT(ErrorOf({"folder", "--engine", "e", "--wait", "-1"}), HasSubstr("--wait"));
    EXPECT_EQ(ErrorOf({"folder", "--engine", "e", "--width-range", "40,5"}),
              "--width-range: the minimum is greater than the maximum");
    EXPECT_EQ(ErrorOf({"folder", "--engine", "e", "--region", "0,50,100,50"}), "--region: the region is empty");
    EXPECT_EQ(ErrorOf({"folder", "--engine", "e", "--server-argument", "x"}), "--server-argument: requires --server");
    for (const char* const region : {"1,2,3", "1,2,3,4,5", "0,0,100,101", "-1,0,5,5", "0,0,,5", "0,0,5,5x", "a"}) {
        EXPECT_THAT(ErrorOf({"folder", "--engine", "e", "--region", region}),
                    HasSubstr("is not 4 percentages from 0 to 100, separated by commas"))
            << region;
    }
}

}  // namespace
}  // namespace plate_evaluation
