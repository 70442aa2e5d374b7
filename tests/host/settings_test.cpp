#include "tools/host/settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/pictures.h"
#include "tests/host/play_command.h"
#include "tests/host/process.h"
#include "tools/host/failure.h"

namespace plate_host {
namespace {

using testing::ElementsAre;
using Value = SettingValue;

TEST(Settings, AKeyEndsAtTheFirstEqualsSign) {
    const Setting setting = ParseSetting("name=a=b");
    EXPECT_EQ(setting.key, "name");
    EXPECT_EQ(setting.text, "a=b");
    EXPECT_EQ(ParseSetting("name=").text, "");
    EXPECT_THROW(ParseSetting("name"), Failure);
    EXPECT_THROW(ParseSetting("=value"), Failure);
}

TEST(Settings, AValueIsTriedAsOtherTypesBeforeText) {
    EXPECT_THAT(PossibleValues("7"), ElementsAre(Value(7), Value(7.0), Value(std::string("7"))));
    EXPECT_THAT(PossibleValues("-12"), ElementsAre(Value(-12), Value(-12.0), Value(std::string("-12"))));
    EXPECT_THAT(PossibleValues("+12"), ElementsAre(Value(12), Value(12.0), Value(std::string("+12"))));
    EXPECT_THAT(PossibleValues("1"), ElementsAre(Value(1), Value(true), Value(1.0), Value(std::string("1"))));
    EXPECT_THAT(PossibleValues("0"), ElementsAre(Value(0), Value(false), Value(0.0), Value(std::string("0"))));
    EXPECT_THAT(PossibleValues("true"), ElementsAre(Value(true), Value(std::string("true"))));
    EXPECT_THAT(PossibleValues("false"), ElementsAre(Value(false), Value(std::string("false"))));
    EXPECT_THAT(PossibleValues("2.5"), ElementsAre(Value(2.5), Value(std::string("2.5"))));
    EXPECT_THAT(PossibleValues("2147483648"), ElementsAre(Value(2147483648.0), Value(std::string("2147483648"))));
    EXPECT_THAT(PossibleValues("gate 7"), ElementsAre(Value(std::string("gate 7"))));
    EXPECT_THAT(PossibleValues(""), ElementsAre(Value(std::string())));
    EXPECT_THAT(PossibleValues("+-1"), ElementsAre(Value(std::string("+-1"))));
    EXPECT_THAT(PossibleValues("nan"), ElementsAre(Value(std::string("nan"))));
}

TEST(Settings, ANumberReachesATextKey) {
    const host_test::Finished run = host_test::RunHost(
        host_test::PlayCommand("-", {"test_event_every=1", "id=7", "use_area=1", "result_rec_count=-3"}),
        host_test::Y4mStream(16, 16, 1));
    ASSERT_EQ(run.status, 0) << run.errors;
    const std::vector<host_test::Json> events = host_test::Lines(run.output);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0]["arguments"]["id"], "7");
    EXPECT_EQ(events[0]["arguments"]["use_area"], true);
    EXPECT_EQ(events[0]["arguments"]["lpf_y3"], -3);
}

TEST(Settings, SeveralMayFollowOneOption) {
    std::vector<std::string> command = host_test::PlayCommand("-", {});
    command.insert(command.end(), {"--set", "test_event_every=1", "id=gate", "use_area=true", "--frames", "1"});
    const host_test::Finished run = host_test::RunHost(command, host_test::Y4mStream(16, 16, 2));
    ASSERT_EQ(run.status, 0) << run.errors;
    const std::vector<host_test::Json> events = host_test::Lines(run.output);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0]["arguments"]["id"], "gate");
    EXPECT_EQ(events[0]["arguments"]["use_area"], true);
}

}  // namespace
}  // namespace plate_host
