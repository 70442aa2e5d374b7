#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/host/pictures.h"
#include "tests/host/play_command.h"
#include "tests/host/process.h"

namespace host_test {
namespace {

using testing::HasSubstr;

class Interruption : public testing::TestWithParam<StopRequest> {};
class SecondInterruption : public Interruption {};

TEST_P(Interruption, EndsARunThatWaitsForInputInOrder) {
    HostProcess process({.arguments = PlayCommand("-", {"test_event_every=1"})});
    process.WriteInput(Y4mStream(16, 16, 1));
    process.WaitForOutput("\n");
    process.Stop(GetParam());
    const Finished run = process.WaitWithOpenInput();
    EXPECT_EQ(run.status, 128 + GetParam().number) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("log 3: detector destroyed\n"
                                      "plate-host: log 3: module finalized\n"
                                      "test plug-in unloaded\n"));
    EXPECT_THAT(run.errors, HasSubstr("1 passed, 1 released"));
    EXPECT_THAT(run.errors, testing::Not(HasSubstr("damaged")));
}

TEST_P(Interruption, EndsARealtimeRunThatWaitsForItsFrame) {
    std::vector<std::string> command = PlayCommand("-", {"test_event_every=1"});
    command.emplace_back("--realtime");
    HostProcess process({.arguments = command});
    process.WriteInput(Y4mHeaderLine(16, 16, " F1:1000000") + Y4mFrame(16, 16, 0) + Y4mFrame(16, 16, 1));
    process.WaitForOutput("\n");
    process.Stop(GetParam());
    const Finished run = process.WaitWithOpenInput();
    EXPECT_EQ(run.status, 128 + GetParam().number) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("test plug-in unloaded\n"));
}

// A request that may be repeated leaves the run the time for it.
TEST_P(SecondInterruption, EmptyFramesFollowTheFirst) {
    HostProcess process({.arguments = PlayCommand("-", {"test_event_every=1"}, Drain::Yes)});
    process.WriteInput(Y4mStream(16, 16, 1));
    process.WaitForOutput("\n");
    process.Stop(GetParam());
    const Finished run = process.WaitWithOpenInput();
    EXPECT_EQ(run.status, 128 + GetParam().number) << run.errors;
    EXPECT_EQ(Lines(run.output).size(), 1u + 110u);
    EXPECT_THAT(run.errors, HasSubstr("111 passed, 111 released"));
}

TEST_P(SecondInterruption, EndsTheRunAtOnce) {
    HostProcess process({.arguments = PlayCommand("-", {"test_event_every=1", "test_destroy_waits=true"})});
    process.WriteInput(Y4mStream(16, 16, 1));
    process.WaitForOutput("\n");
    process.Stop(GetParam());
    process.WaitForErrors("detector destroyed");
    process.Stop(GetParam());
    const Finished run = process.WaitWithOpenInput();
    EXPECT_EQ(run.status, 128 + GetParam().number) << run.errors;
    EXPECT_THAT(run.errors, testing::Not(HasSubstr("module finalized")));
}

TEST_P(Interruption, EndsARunThatStillWaitsForItsFirstPicture) {
    HostProcess process({.arguments = PlayCommand("-", {})});
    process.WriteInput(Y4mHeaderLine(16, 16));
    // The program handles requests only once it is initialised; before that a request kills it.
    process.WaitUntilInputIsRead();
    process.Stop(GetParam());
    const Finished run = process.WaitWithOpenInput();
    EXPECT_EQ(run.status, 128 + GetParam().number) << run.errors;
    EXPECT_EQ(run.errors, "");
}

std::vector<StopRequest> RepeatableRequests() {
    std::vector<StopRequest> requests = StopRequests();
    std::erase_if(requests, [](const StopRequest& request) { return !request.isRepeatable; });
    return requests;
}

std::string NameOf(const testing::TestParamInfo<StopRequest>& request) {
    return request.param.name;
}

INSTANTIATE_TEST_SUITE_P(Requests, Interruption, testing::ValuesIn(StopRequests()), NameOf);
INSTANTIATE_TEST_SUITE_P(Requests, SecondInterruption, testing::ValuesIn(RepeatableRequests()), NameOf);

}  // namespace
}  // namespace host_test
