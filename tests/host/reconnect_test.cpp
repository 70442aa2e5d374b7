#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/host/play_command.h"
#include "tests/host/process.h"

namespace host_test {
namespace {

using testing::HasSubstr;

/// A camera that the test switches off and on.
class Camera {
  public:
    Camera() { SwitchOn(); }

    /// Returns when clients can connect; the port stays the same.
    void SwitchOn() {
        std::vector<std::string> arguments{HOST_TEST_RTSP_SERVER};
        if (!port_.empty()) {
            arguments.push_back(port_);
        }
        server_ = std::make_unique<test_support::ChildProcess>(
            test_support::ChildProcess::Start{.program = HOST_TEST_PYTHON, .arguments = arguments});
        server_->WaitForOutput("\n");
        port_ = server_->Output().substr(0, server_->Output().find('\n'));
    }

    void SwitchOff() { server_.reset(); }

    std::string Address() const { return "rtsp://127.0.0.1:" + port_ + "/camera"; }

  private:
    std::string port_;
    std::unique_ptr<test_support::ChildProcess> server_;
};

TEST(Reconnection, ACamerasStreamIsOpenedAgain) {
    Camera camera;
    HostProcess process({.arguments = PlayCommand(camera.Address(), {"test_event_every=1"})});
    process.WaitForOutput("\n");
    camera.SwitchOff();
    process.WaitForErrors("plate-host: the connection to \"" + camera.Address() + "\" broke off");
    camera.SwitchOn();
    process.WaitForErrors("plate-host: connected again after ");
    const std::size_t before = process.Output().size();
    while (process.Output().size() == before) {
        process.PumpOnce();
    }
    process.Stop(StopRequests().front());
    const Finished run = process.WaitWithOpenInput();
    EXPECT_EQ(run.status, 128 + StopRequests().front().number) << run.errors;
    EXPECT_THAT(run.errors, testing::ContainsRegex("without connection +1 times, [0-9.]+ seconds in all\n"));
    std::int64_t last = -1;
    std::int64_t largestStep = 0;
    for (const Json& event : Lines(run.output)) {
        const std::int64_t time = event["time"].get<std::int64_t>();
        EXPECT_GT(time, last) << "times go on";
        largestStep = last < 0 ? 0 : std::max(largestStep, time - last);
        last = time;
    }
    EXPECT_GE(largestStep, 1000) << "the first pause is part of the times";
}

TEST(Reconnection, CanBeTurnedOff) {
    Camera camera;
    std::vector<std::string> command = PlayCommand(camera.Address(), {"test_event_every=1"});
    command.emplace_back("--no-reconnect");
    HostProcess process({.arguments = command});
    process.WaitForOutput("\n");
    camera.SwitchOff();
    const Finished run = process.Wait();
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("plate-host: summary"));
    EXPECT_THAT(run.errors, testing::Not(HasSubstr("without connection")));
}

TEST(Reconnection, AnAddressThatCannotBeOpenedAtFirstIsAnError) {
    Camera camera;
    camera.SwitchOff();
    const Finished run = RunHost(PlayCommand(camera.Address(), {}));
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.errors, testing::StartsWith("plate-host: cannot open \"" + camera.Address() + "\": "));
}

}  // namespace
}  // namespace host_test
