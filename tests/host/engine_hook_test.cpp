// A hook between the detector library and the scripted engine.
#include "tools/host/engine_hook.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <nlohmann/json.hpp>
#include <thread>

#include "tests/host/temporary_folder.h"
#include "tests/support/environment.h"
#include "tools/host/event_printer.h"
#include "tools/host/failure.h"
#include "tools/host/frame_buffer.h"
#include "tools/host/host_objects.h"
#include "tools/host/plugin.h"
#include "tools/host/settings.h"

namespace host_test {
namespace {

using namespace plate_host;
using Json = nlohmann::ordered_json;

constexpr int width = 320;
constexpr int height = 240;
constexpr int frames = 12;
constexpr int channels = 2;

Json PlateIn(int frame) {
    const int left = 40 + frame * 10;
    const int top = 60 + frame * 12;
    return {{"text", "AB1234"},
            {"confidence", 540},
            {"corners", {{left, top}, {left, top + 14}, {left + 60, top}, {left + 60, top + 14}}}};
}

Json Script() {
    Json script{{"counting", "thread"}, {"journal", "calls.jsonl"}, {"frames", Json::array()}};
    for (int frame = 0; frame < frames; ++frame) {
        script["frames"].push_back({{"plates", {PlateIn(frame)}}});
    }
    return script;
}

/// Passes every call on. Any thread.
class CountingHook : public EngineHook {
  public:
    int Recognise(const EngineFunctions& engine, IMG* image, tagRECT* region, RPLATE* plates, int flags) override {
        ++recognitions;
        return engine.recognise(nullptr, image, region, plates, flags);
    }
    bool SetRange(const EngineFunctions& engine, int minimumWidth, int maximumWidth) override {
        ++ranges;
        return engine.setRange(minimumWidth, maximumWidth);
    }

    std::atomic<int> recognitions{0};
    std::atomic<int> ranges{0};
};

/// Plays frames through a detector for each channel, all at the same time. Returns the lines of the events, sorted.
std::vector<std::string> Play(const PluginPaths& paths, EngineHook* hook) {
    Console console(false);
    std::vector<std::string> lines;
    EventPrinter printer(
        [&lines](std::string_view line) {
            lines.emplace_back(line);
            return WriteResult();
        },
        console);
    HostObject host(console);
    Plugin plugin(paths, hook);
    plugin.Initialize(host);
    BufferCounts buffers;
    std::vector<std::thread> threads;
    for (int channel = 0; channel < channels; ++channel) {
        threads.emplace_back([&, channel] {
            DetectorPeer peer(channel, host, printer, console);
            const Detector detector = plugin.CreateDetector(peer);
            ApplySettings(*detector.settings, *detector.errors,
                          {{"result_ready", "true"}, {"result_rec_count", "8"}, {"result_wait_time", "100"}});
            for (int frame = 0; frame < frames; ++frame) {
                Picture picture = MakeEmptyScene(width, height, true);
                picture.timeMs = static_cast<std::uint64_t>(frame) * 40;
                EXPECT_EQ(detector.receiver->Receive(FrameBuffer::Create(std::move(picture), buffers)), 0);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(buffers.released, buffers.passed);
    std::sort(lines.begin(), lines.end());
    return lines;
}

class EngineHookTest : public testing::Test {
  protected:
    EngineHookTest() { test_support::SetEnvironment("VEXLANE_SCRIPT", folder.Write("script.json", Script().dump())); }

    int LinesOfJournal() const {
        std::ifstream file(ToOpenPath(folder.Path("calls.jsonl")));
        return static_cast<int>(std::count(std::istreambuf_iterator<char>(file), {}, '\n'));
    }

    const TemporaryFolder folder;
    const PluginPaths scripted{.library = HOST_TEST_LIBRARY, .engine = HOST_TEST_SCRIPTED_ENGINE};
};

TEST_F(EngineHookTest, EveryCallGoesThroughTheHookAndTheEventsStayTheSame) {
    const std::vector<std::string> plain = Play(scripted, nullptr);
    EXPECT_EQ(plain.size(), std::size_t{channels});
    const int plainCalls = LinesOfJournal();
    CountingHook hook;
    EXPECT_EQ(Play(scripted, &hook), plain);
    EXPECT_EQ(hook.recognitions, channels * frames);
    EXPECT_EQ(hook.recognitions + hook.ranges, plainCalls);
    EXPECT_EQ(LinesOfJournal(), 2 * plainCalls) << "and the engine got each of them once";
    EXPECT_EQ(Play(scripted, nullptr), plain) << "the library binds to the engine again";
    EXPECT_EQ(hook.recognitions, channels * frames);
}

TEST_F(EngineHookTest, AHookTakesThePlaceOfAnEngine) {
    class Replacement : public EngineHook {
      public:
        int Recognise(const EngineFunctions& engine, IMG*, tagRECT*, RPLATE* plates, int) override {
            EXPECT_EQ(engine.recognise, nullptr);
            thread_local int frame = 0;
            const Json plate = PlateIn(frame++);
            plate["text"].get_ref<const std::string&>().copy(plates[0].text, sizeof plates[0].text);
            SetConfidenceSum(plates[0], plate["confidence"]);
            const Json& corners = plate["corners"];
            std::size_t index = 0;
            for (EngineCorner* const corner :
                 {&plates[0].corner1, &plates[0].corner2, &plates[0].corner3, &plates[0].corner4}) {
                *corner = {corners[index][0], corners[index][1]};
                ++index;
            }
            return 1;
        }
        bool SetRange(const EngineFunctions& engine, int, int) override { return engine.setRange == nullptr; }
    } replacement;
    const std::vector<std::string> events =
        Play({.library = HOST_TEST_LIBRARY, .engine = {}, .hasNoEngine = true}, &replacement);
    EXPECT_EQ(events, Play(scripted, nullptr));
}

TEST_F(EngineHookTest, ALibraryThatIsNoEngineIsRefused) {
    CountingHook hook;
    const PluginPaths paths{.library = HOST_TEST_LIBRARY, .engine = HOST_TEST_INCOMPLETE_PLUGIN};
    EXPECT_THAT([&] { Plugin plugin(paths, &hook); },
                testing::ThrowsMessage<Failure>(testing::HasSubstr("is not an engine: it does not export ")));
}

}  // namespace
}  // namespace host_test
