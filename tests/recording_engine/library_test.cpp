// The recording engine between the detector library and the scripted engine, in a host that knows nothing of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/host/pictures.h"
#include "tests/host/process.h"
#include "tests/host/temporary_folder.h"
#include "tools/host/system.h"
#include "tools/recording/recording.h"

namespace recording_engine_test {
namespace {

using Json = nlohmann::json;
using test_support::Finished;

constexpr int channels = 2;
constexpr int frames = 12;

std::string Script() {
    Json script{{"counting", "thread"}, {"refused_ranges", {2}}, {"frames", Json::array()}};
    for (int frame = 0; frame < frames; ++frame) {
        const int left = 40 + frame * 10;
        const int top = 60 + frame * 12;
        script["frames"].push_back(
            {{"plates",
              {{{"text", "AB1234"},
                {"confidence", 540},
                {"corners", {{left, top}, {left, top + 14}, {left + 60, top}, {left + 60, top + 14}}}}}}});
    }
    return script.dump();
}

TEST(RecordingEngineInAHost, TheEventsAreTheSame) {
    const host_test::TemporaryFolder folder;
    const std::string proxy = folder.Copy(TEST_RECORDING_ENGINE, plate_host::EngineFileName());
    folder.Copy(TEST_SCRIPTED_ENGINE, "real-engine");
    folder.Write("Recon64.conf", "engine = real-engine\nrecording = run.vxr\n");
    const std::string video = folder.Write("video.y4m", host_test::Y4mStream(320, 240, frames));
    const std::string script = folder.Write("script.json", Script());
    const auto eventsWith = [&](const std::string& engine) {
        const Finished run =
            host_test::HostProcess({.arguments = {"play", video, "--plugin", TEST_LIBRARY, "--engine", engine,
                                                  "--channels", std::to_string(channels), "--set", "result_ready=true",
                                                  "--set", "result_rec_count=8", "--set", "result_wait_time=100"},
                                    .environment = {{"VEXLANE_SCRIPT", script}}})
                .Wait();
        EXPECT_EQ(run.status, 0) << run.errors;
        EXPECT_THAT(run.errors, testing::Not(testing::HasSubstr("Recon64 (recording)")));
        std::vector<std::string> lines;
        std::istringstream output(run.output);
        for (std::string line; std::getline(output, line);) {
            lines.push_back(line);
        }
        std::sort(lines.begin(), lines.end());
        return lines;
    };
    const std::vector<std::string> plain = eventsWith(TEST_SCRIPTED_ENGINE);
    EXPECT_EQ(plain.size(), std::size_t{channels});
    EXPECT_EQ(eventsWith(proxy), plain);

    const recording::Recording recorded = recording::ReadRecording(plate_host::ToPath(folder.Path("run.vxr")));
    EXPECT_EQ(recorded.channels.size(), std::size_t{channels});
    EXPECT_GE(recorded.frames.size(), std::size_t{channels * frames});
    int refused = 0;
    for (const recording::Frame& frame : recorded.frames) {
        for (const recording::RangeCall& range : frame.ranges) {
            refused += range.isAccepted ? 0 : 1;
        }
    }
    EXPECT_EQ(refused, channels);

    // The times of a recording beside the engine are those of the clock; the texts are the same.
    const Finished replay =
        host_test::HostProcess(
            {.arguments = {"replay", folder.Path("run.vxr"), "--plugin", TEST_LIBRARY, "--set", "result_ready=true",
                           "--set", "result_rec_count=8", "--set", "result_wait_time=100"}})
            .Wait();
    EXPECT_EQ(replay.status, 0) << replay.errors;
    EXPECT_EQ(std::count(replay.output.begin(), replay.output.end(), '\n'), channels) << replay.errors;
    EXPECT_THAT(replay.output, testing::HasSubstr("AB1234"));
}

}  // namespace
}  // namespace recording_engine_test
