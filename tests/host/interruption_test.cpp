#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "tests/host/pictures.h"
#include "tests/host/play_command.h"
#include "tests/host/posix_process.h"

namespace host_test {
namespace {

using testing::HasSubstr;

class Interruption : public testing::TestWithParam<int> {};

TEST_P(Interruption, EndsAPlayThatWaitsForInputInOrder) {
    HostProcess process({.arguments = PlayCommand("-", {"test_event_every=1"})});
    process.WriteInput(Y4mStream(16, 16, 1));
    process.WaitForOutput("\n");
    process.Signal(GetParam());
    process.WaitForErrors("buffers");  // ends by itself while its input stays open
    const Finished run = process.Wait();
    EXPECT_EQ(run.status, 128 + GetParam()) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("log 3: detector destroyed\n"
                                      "plate-host: log 3: module finalized\n"
                                      "test plug-in unloaded\n"));
    EXPECT_THAT(run.errors, HasSubstr("1 handed out, 1 given back"));
    EXPECT_THAT(run.errors, testing::Not(HasSubstr("damaged")));
}

TEST_P(Interruption, EndsARealtimePlayThatWaitsForItsFrame) {
    std::vector<std::string> command = PlayCommand("-", {"test_event_every=1"});
    command.emplace_back("--realtime");
    HostProcess process({.arguments = command});
    process.WriteInput(Y4mHeaderLine(16, 16, " F1:1000000") + Y4mFrame(16, 16, 0) + Y4mFrame(16, 16, 1));
    process.WaitForOutput("\n");
    process.Signal(GetParam());
    const Finished run = process.Wait();
    EXPECT_EQ(run.status, 128 + GetParam()) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("test plug-in unloaded\n"));
}

TEST_P(Interruption, EndsAtOnceWhenItComesASecondTime) {
    HostProcess process({.arguments = PlayCommand("-", {"test_event_every=1", "test_destroy_waits=true"})});
    process.WriteInput(Y4mStream(16, 16, 1));
    process.WaitForOutput("\n");
    process.Signal(GetParam());
    process.WaitForErrors("detector destroyed");
    process.Signal(GetParam());
    const Finished run = process.Wait();
    EXPECT_EQ(run.status, 128 + GetParam()) << run.errors;
    EXPECT_THAT(run.errors, testing::Not(HasSubstr("module finalized")));
}

TEST_P(Interruption, EndsARunThatStillWaitsForItsFirstPicture) {
    HostProcess process({.arguments = PlayCommand("-", {})});
    process.WriteInput(Y4mHeaderLine(16, 16));
    // The program takes the signal as a request only once it has prepared itself; until then the signal ends it.
    process.WaitUntilInputIsRead();
    process.Signal(GetParam());
    const Finished run = process.Wait();
    EXPECT_EQ(run.status, 128 + GetParam()) << run.errors;
    EXPECT_EQ(run.errors, "");
}

INSTANTIATE_TEST_SUITE_P(Signals, Interruption, testing::Values(SIGINT, SIGTERM),
                         [](const auto& signal) { return signal.param == SIGINT ? "SigInt" : "SigTerm"; });

}  // namespace
}  // namespace host_test
