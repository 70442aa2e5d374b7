// The recording engine in a process of its own, with engines that return what a test expects.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "tests/host/temporary_folder.h"
#include "tests/recording_engine/calls.h"
#include "tests/support/child_process.h"
#include "tools/host/system.h"
#include "tools/recording/recording.h"

namespace recording_engine_test {
namespace {

using plate_host::ToPath;
using test_support::ChildProcess;
using test_support::EnvironmentChanges;
using test_support::Finished;
using testing::HasSubstr;
using Json = nlohmann::json;

constexpr int threads = 3;
constexpr int calls = 20;

#ifdef _WIN32
constexpr char realName[] = "RealRecon64.dll";
#else
constexpr char realName[] = "libRealRecon64.so";
#endif

ChildProcess::Start StartOf(const std::string& engine, int callCount = calls, EnvironmentChanges environment = {}) {
    return {.program = ToPath(TEST_CALLER),
            .arguments = {engine, std::to_string(threads), std::to_string(callCount)},
            .environment = std::move(environment)};
}

Finished RunCaller(const std::string& engine, const EnvironmentChanges& environment = {}) {
    Finished run = ChildProcess(StartOf(engine, calls, environment)).Wait();
    std::erase(run.errors, '\r');
    return run;
}

/// A folder with the recording engine and, under another name, the one that it stands for.
struct Site {
    explicit Site(const std::string& engine) {
        folder.Copy(engine, realName);
        Configure("# the real engine\nengine = " + std::string(realName) + "\nrecording = run.vxr\n");
    }

    void Configure(const std::string& text) const { folder.Write("Recon64.conf", text); }
    recording::Recording Recorded() const { return recording::ReadRecording(ToPath(folder.Path("run.vxr"))); }

    const host_test::TemporaryFolder folder;
    const std::string proxy = folder.Copy(TEST_RECORDING_ENGINE, plate_host::EngineFileName());
};

std::vector<recording::Frame> FramesOf(const recording::Recording& recording, int channel) {
    std::vector<recording::Frame> frames;
    for (const recording::Frame& frame : recording.frames) {
        if (frame.channel == channel) {
            frames.push_back(frame);
        }
    }
    return frames;
}

std::uint64_t ChecksumOf(int thread, int call) {
    std::vector<std::uint8_t> pixels;
    const std::size_t rowSize = WidthOf(call) * 3;
    for (std::size_t row = 0; row < HeightOf(thread); ++row) {
        for (std::size_t byte = 0; byte < rowSize; ++byte) {
            pixels.push_back(PixelByte(thread, call, row * (rowSize + PaddingOf(call)) + byte));
        }
    }
    return recording::ChecksumOf(pixels.data(), pixels.size());
}

void ExpectOneLine(const std::string& errors, const std::string& part) {
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
    EXPECT_THAT(errors, testing::StartsWith("Recon64 (recording): "));
    EXPECT_THAT(errors, HasSubstr(part));
}

TEST(RecordingEngine, ChangesNothing) {
    const Site site(TEST_ENGINE);
    const Finished plain = RunCaller(TEST_ENGINE);
    const Finished recorded = RunCaller(site.proxy);
    ASSERT_EQ(plain.status, 0) << plain.errors;
    EXPECT_EQ(recorded.status, 0) << recorded.errors;
    EXPECT_EQ(std::count(plain.output.begin(), plain.output.end(), '\n'), threads * calls);
    EXPECT_EQ(recorded.output, plain.output);
    EXPECT_EQ(recorded.errors, "");
}

TEST(RecordingEngine, RecordsWhatEachThreadPassedAndGot) {
    const Site site(TEST_ENGINE);
    ASSERT_EQ(RunCaller(site.proxy).status, 0);
    const recording::Recording recorded = site.Recorded();
    EXPECT_EQ(recorded.run.recorder, "engine");
    EXPECT_EQ(ToPath(recorded.run.engine), ToPath(site.folder.Path(realName)));
    EXPECT_THAT(recorded.run.startTime, testing::MatchesRegex("20..-..-..T..:..:..Z"));
    ASSERT_EQ(recorded.channels.size(), std::size_t{threads});
    EXPECT_EQ(recorded.frames.size(), std::size_t{threads * calls});
    for (int thread = 0; thread < threads; ++thread) {
        EXPECT_EQ(recorded.channels[static_cast<std::size_t>(thread)].number, thread);
        const std::vector<recording::Frame> frames = FramesOf(recorded, thread);
        ASSERT_EQ(frames.size(), std::size_t{calls});
        std::uint64_t time = 0;
        for (int call = 0; call < calls; ++call) {
            SCOPED_TRACE(testing::Message() << "thread " << thread << ", call " << call);
            const recording::Frame& frame = frames[static_cast<std::size_t>(call)];
            EXPECT_EQ(frame.number, static_cast<std::uint64_t>(call));
            EXPECT_GE(frame.timeMs, time);
            time = frame.timeMs;
            EXPECT_EQ(frame.width, WidthOf(call));
            EXPECT_EQ(frame.height, HeightOf(thread));
            EXPECT_EQ(frame.size, HasPixels(call) ? WidthOf(call) * HeightOf(thread) * 3 : 0);
            EXPECT_EQ(frame.checksum, HasPixels(call) ? ChecksumOf(thread, call) : 0);
            const recording::RangeCall range{SmallestWidth(thread), LargestWidth(call),
                                             (SmallestWidth(thread) + LargestWidth(call)) % 8 < 4};
            EXPECT_EQ(frame.ranges, HasRange(call) ? std::vector{range} : std::vector<recording::RangeCall>{});
            EXPECT_EQ(frame.code, 0);
            ASSERT_EQ(frame.engineCalls.size(), 1u);
            const recording::EngineCall& engineCall = frame.engineCalls[0];
            EXPECT_EQ(engineCall.width, WidthOf(call));
            EXPECT_EQ(engineCall.height, HeightOf(thread));
            const std::optional<tagRECT> region = RegionOf(thread, call);
            ASSERT_EQ(engineCall.region.has_value(), region.has_value());
            if (region) {
                EXPECT_EQ(engineCall.region->left, region->left);
                EXPECT_EQ(engineCall.region->right, region->right);
                EXPECT_EQ(engineCall.region->bottom, region->bottom) << "as it was given";
            }
            constexpr int results[] = {0, 1, 5, 7, 2000, -1};
            const int count = results[call % 6];
            EXPECT_EQ(engineCall.count, count);
            ASSERT_EQ(engineCall.plates.size(), static_cast<std::size_t>(std::clamp(count, 0, engineRecordCount)));
            for (std::size_t index = 0; index < engineCall.plates.size(); ++index) {
                const RPLATE& plate = engineCall.plates[index];
                const char byte = static_cast<char>(call + static_cast<int>(index + WidthOf(call)));
                EXPECT_EQ(std::string(plate.text, sizeof plate.text), std::string(sizeof plate.text, byte));
                EXPECT_EQ(std::string(plate.country, sizeof plate.country), std::string(sizeof plate.country, byte));
                EXPECT_EQ(plate.confidenceSum[7], static_cast<std::uint8_t>(byte));
                EXPECT_EQ(plate.corner4.y, plate.corner1.x);
                EXPECT_EQ(plate.corner1.x & 0xFF, static_cast<std::uint8_t>(byte));
            }
        }
    }
}

TEST(RecordingEngine, HasTheCallsOfTheScriptedEnginesJournal) {
    const Site site(TEST_SCRIPTED_ENGINE);
    Json script{
        {"counting", "thread"}, {"journal", "calls.jsonl"}, {"refused_ranges", {1, 3}}, {"frames", Json::array()}};
    for (int frame = 0; frame < calls; ++frame) {
        script["frames"].push_back({{"plates",
                                     {{{"bytes", frame % 2 == 0 ? "BEA94131323334" : "414231323334"},
                                       {"confidence", 540.5 + frame},
                                       {"corners", {{frame, 2}, {3, 4}, {5, 6}, {7, 8}}}}}},
                                    {"count", frame % 5 - 1}});
    }
    const EnvironmentChanges environment{{"VEXLANE_SCRIPT", site.folder.Write("script.json", script.dump())}};
    ASSERT_EQ(RunCaller(site.proxy, environment).status, 0);
    const recording::Recording recorded = site.Recorded();

    std::map<int, std::vector<Json>> recognitions;
    std::map<int, std::vector<Json>> ranges;
    std::ifstream journal(ToPath(site.folder.Path("calls.jsonl")));
    for (std::string line; std::getline(journal, line);) {
        const Json call = Json::parse(line);
        (call["call"] == "Recognize2" ? recognitions : ranges)[call["thread"].get<int>()].push_back(call);
    }
    for (int thread = 0; thread < threads; ++thread) {
        const std::vector<recording::Frame> frames = FramesOf(recorded, thread);
        ASSERT_EQ(frames.size(), recognitions[thread].size());
        std::vector<recording::RangeCall> recordedRanges;
        for (std::size_t index = 0; index < frames.size(); ++index) {
            const Json& call = recognitions[thread][index];
            const recording::EngineCall& engineCall = frames[index].engineCalls.at(0);
            EXPECT_EQ(engineCall.width, call["image"]["width"]);
            EXPECT_EQ(engineCall.height, call["image"]["height"]);
            EXPECT_EQ(engineCall.region.has_value(), !call["region"].is_null());
            EXPECT_EQ(engineCall.count, call["answer"]);
            if (engineCall.count > 0) {
                EXPECT_EQ(std::string(engineCall.plates.at(0).text),
                          index % 2 == 0 ? "\xBE\xA9\x41\x31\x32\x33\x34" : "AB1234");
                EXPECT_EQ(ConfidenceSumOf(engineCall.plates[0]), 540.5 + static_cast<double>(index));
                EXPECT_EQ(engineCall.plates[0].corner1.x, static_cast<int>(index));
            }
            recordedRanges.insert(recordedRanges.end(), frames[index].ranges.begin(), frames[index].ranges.end());
        }
        ASSERT_EQ(recordedRanges.size(), ranges[thread].size());
        for (std::size_t index = 0; index < recordedRanges.size(); ++index) {
            const Json& call = ranges[thread][index];
            EXPECT_EQ(recordedRanges[index],
                      (recording::RangeCall{call["minimum_width"], call["maximum_width"], call["answer"]}));
            EXPECT_EQ(recordedRanges[index].isAccepted, index != 1 && index != 3);
        }
    }
}

TEST(RecordingEngine, AKilledProcessLeavesItsRecording) {
    const Site site(TEST_ENGINE);
    auto process = std::make_unique<ChildProcess>(StartOf(site.proxy, 0));
    process->WaitForOutput("calling");
    process.reset();
    const recording::Recording recorded = site.Recorded();
    EXPECT_EQ(recorded.channels.size(), std::size_t{threads});
    EXPECT_GE(recorded.frames.size(), std::size_t{threads * callsBeforeOutput});
    EXPECT_FALSE(recorded.end.has_value());
}

class Exceptions : public testing::TestWithParam<const char*> {};

TEST_P(Exceptions, PassThroughUnchangedAndAreRecorded) {
    const Site site(TEST_ENGINE);
    const EnvironmentChanges environment{{"TEST_ENGINE_RECOGNISE", GetParam()}, {"TEST_ENGINE_RANGE", GetParam()}};
    const Finished plain = RunCaller(TEST_ENGINE, environment);
    ASSERT_EQ(plain.status, 0) << plain.errors;
    EXPECT_THAT(plain.output, HasSubstr(std::string(" recognition ") + GetParam()));
    const Finished recordedRun = RunCaller(site.proxy, environment);
    EXPECT_EQ(recordedRun.output, plain.output) << recordedRun.errors;
    EXPECT_EQ(recordedRun.errors, "");
    const recording::Recording recorded = site.Recorded();
    for (int thread = 0; thread < threads; ++thread) {
        const std::vector<recording::Frame> frames = FramesOf(recorded, thread);
        // One of another compiler is found at the thread's next call.
        const bool isForeign = std::string("exception of another compiler") == GetParam();
        EXPECT_EQ(frames.size(), std::size_t{calls} - (isForeign ? 1 : 0));
        for (const recording::Frame& frame : frames) {
            EXPECT_TRUE(frame.engineCalls.at(0).hasThrown);
            EXPECT_EQ(frame.engineCalls.at(0).count, 0);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(RecordingEngine, Exceptions,
                         testing::Values("exception", "int"
#ifdef _WIN32
                                         ,
                                         "exception of another compiler"
#endif
                                         ),
                         [](const auto& kind) {
                             std::string name = kind.param;
                             std::replace(name.begin(), name.end(), ' ', '_');
                             return name;
                         });

class WithoutAnEngine : public testing::Test {
  protected:
    void ExpectNothingFound(const std::string& reason) const {
        const Finished run = RunCaller(site.proxy);
        EXPECT_EQ(run.status, 0);
        ExpectOneLine(run.errors, reason);
        EXPECT_THAT(run.errors, testing::EndsWith("; no plates will be found\n"));
        std::istringstream lines(run.output);
        int count = 0;
        for (std::string line; std::getline(lines, line); ++count) {
            EXPECT_THAT(line, HasSubstr(" recognition 0 00000000"));
            EXPECT_THAT(line, testing::Not(HasSubstr(" range 0")));
        }
        EXPECT_EQ(count, threads * calls);
    }

    const Site site{TEST_ENGINE};
};

TEST_F(WithoutAnEngine, NoConfiguration) {
    std::filesystem::remove(ToPath(site.folder.Path("Recon64.conf")));
    ExpectNothingFound("cannot open \"" + site.folder.Path("Recon64.conf") + "\"");
}

TEST_F(WithoutAnEngine, AnInvalidConfiguration) {
    site.Configure("engin = x\n");
    ExpectNothingFound("Recon64.conf\": line 1: \"engin = x\" is neither");
}

TEST_F(WithoutAnEngine, AMissingEngine) {
    site.Configure("engine = none.dll\n");
    ExpectNothingFound("cannot load the real engine \"");
}

TEST_F(WithoutAnEngine, TheRecordingEngineItself) {
    site.Configure("engine = " + std::string(plate_host::EngineFileName()));
    ExpectNothingFound("is the recording engine itself");
}

TEST_F(WithoutAnEngine, AnotherLibrary) {
    site.folder.Copy(TEST_OTHER_LIBRARY, "other");
    site.Configure("engine = other");
    ExpectNothingFound("is not an engine: it does not export ");
}

TEST(RecordingEngine, ARecordingThatCannotBeWrittenChangesNothingElse) {
    const Site site(TEST_ENGINE);
    site.folder.MakeFolder("occupied");
    site.Configure("engine = " + std::string(realName) + "\nrecording = occupied\n");
    const Finished run = RunCaller(site.proxy);
    EXPECT_EQ(run.output, RunCaller(TEST_ENGINE).output);
    ExpectOneLine(run.errors, "; nothing is recorded\n");
}

TEST(RecordingEngine, TheFolderOfTheRecordingIsCreated) {
    const Site site(TEST_ENGINE);
    site.Configure("engine = " + std::string(realName) + "\nrecording = new \xD0\x96/%p.vxr\n");
    ASSERT_EQ(RunCaller(site.proxy).status, 0);
    int files = 0;
    for (const auto& file : std::filesystem::directory_iterator(ToPath(site.folder.Path("new \xD0\x96")))) {
        EXPECT_EQ(recording::ReadRecording(file.path()).frames.size(), std::size_t{threads * calls});
        ++files;
    }
    EXPECT_EQ(files, 1);
}

}  // namespace
}  // namespace recording_engine_test
