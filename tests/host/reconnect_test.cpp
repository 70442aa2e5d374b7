#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "tests/host/play_command.h"
#include "tests/host/process.h"
#include "tests/host/temporary_folder.h"

namespace host_test {
namespace {

using testing::HasSubstr;

/// A camera that the test switches off and on. It is a program of Linux, also under Wine, where it has no handle: it
/// tells its port in a file and runs until that is removed.
class Camera {
  public:
    Camera() { SwitchOn(); }
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;
    ~Camera() { SwitchOff(); }

    /// Returns when clients can connect; the port stays the same.
    void SwitchOn() {
        const std::string command = HOST_TEST_START_CAMERA " " + file_ + " " + port_ + HOST_TEST_IN_BACKGROUND;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(120);
        bool isStarted = std::system(command.c_str()) == 0;
        while (isStarted && !std::filesystem::exists(file_)) {
            isStarted = std::chrono::steady_clock::now() < end;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        if (!isStarted) {
            throw std::runtime_error("cannot start the camera: " + command);
        }
        std::ifstream(file_) >> port_;
    }

    void SwitchOff() {
        std::error_code ignored;
        std::filesystem::remove(file_, ignored);
    }

    std::string Address() const { return "rtsp://127.0.0.1:" + port_ + "/camera"; }

  private:
    const std::string file_ = HOST_TEST_CAMERA "-" + std::to_string(std::random_device()());
    std::string port_;
};

TEST(Reconnection, ACamerasStreamIsOpenedAgain) {
    Camera camera;
    const TemporaryFolder folder;
    std::vector<std::string> command = PlayCommand(camera.Address(), {"test_event_every=1"});
    command.insert(command.end(), {"--record", folder.Path("run.vxr"), "--with-frames"});
    HostProcess process({.arguments = command});
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
    EXPECT_THAT(run.errors, testing::ContainsRegex("without connection +1 times, .+ seconds in all\n"));
    std::int64_t last = -1;
    std::int64_t largestStep = 0;
    for (const Json& event : Lines(run.output)) {
        const std::int64_t time = event["time"].get<std::int64_t>();
        EXPECT_GT(time, last) << "times go on";
        largestStep = last < 0 ? 0 : std::max(largestStep, time - last);
        last = time;
    }
    EXPECT_GE(largestStep, 1000) << "the first pause is part of the times";
    for (const char* const kept : {"run.mkv", "run-2.mkv"}) {
        const Finished played = RunHost(PlayCommand(folder.Path(kept), {"test_event_every=1"}));
        EXPECT_FALSE(Lines(played.output).empty()) << kept << played.errors;
    }
}

TEST(Reconnection, CanBeTurnedOff) {
    Camera camera;
    const TemporaryFolder folder;
    std::string address = camera.Address();
    address.insert(address.find("://") + 3, "user:secret@");
    std::vector<std::string> command = PlayCommand(address, {"test_event_every=1"});
    command.insert(command.end(), {"--no-reconnect", "--record", folder.Path("run.vxr")});
    HostProcess process({.arguments = command});
    process.WaitForOutput("\n");
    camera.SwitchOff();
    const Finished run = process.Wait();
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("plate-host: summary"));
    EXPECT_THAT(run.errors, testing::Not(HasSubstr("without connection")));
    std::ostringstream recording;
    recording << std::ifstream(plate_host::ToOpenPath(folder.Path("run.vxr")), std::ios::binary).rdbuf();
    EXPECT_THAT(recording.str(), HasSubstr("\"video\":\"" + camera.Address() + "\"")) << "without the password";
}

TEST(Reconnection, AnAddressThatCannotBeOpenedAtFirstIsAnError) {
    const Finished run = RunHost(PlayCommand("rtsp://127.0.0.1:1/camera", {}));
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.errors, testing::StartsWith("plate-host: cannot open \"rtsp://127.0.0.1:1/camera\": "));
}

}  // namespace
}  // namespace host_test
