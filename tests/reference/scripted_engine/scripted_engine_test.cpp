#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <boost/dll/shared_library.hpp>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "engine/engine_records.h"
#include "tests/support/environment.h"

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

using Plates = std::array<RPLATE, engineRecordCount>;

// The functions' names as mangled by the platform's usual compiler.
#ifdef _WIN32
constexpr const char* recogniseName = "?Recognize2@@YAHPEAUYUV420_IMG@@PEAUIMG@@PEAUtagRECT@@PEAURPLATE@@H@Z";
constexpr const char* setRangeName = "?SetPlateRange@@YA_NHH@Z";
#else
constexpr const char* recogniseName = "_Z10Recognize2P10YUV420_IMGP3IMGP7tagRECTP6RPLATEi";
constexpr const char* setRangeName = "_Z13SetPlateRangeii";
#endif

/// The engine, loaded for each test, with a script from the test.
class ScriptedEngine : public testing::Test {
  protected:
    ScriptedEngine() {
        folder = std::filesystem::temp_directory_path() / ("scripted-engine-" + std::to_string(std::random_device()()));
        std::filesystem::create_directories(folder);
    }

    ~ScriptedEngine() override {
        library.unload();
        std::filesystem::remove_all(folder);
    }

    void Load(const std::string& script) {
        std::ofstream(ScriptFile()) << script;
        LoadNamed(ScriptFile().string());
    }

    void Load(const json& script) { Load(script.dump()); }

    void LoadNamed(const std::string& file) {
        test_support::SetEnvironment("VEXLANE_SCRIPT", file);
        LoadLibrary();
    }

    void LoadLibrary() {
        library.load(std::filesystem::absolute(VEXLANE_TEST_ENGINE).string());
        recognise = &library.get<int(YUV420_IMG*, IMG*, tagRECT*, RPLATE*, int)>(recogniseName);
        setRange = &library.get<bool(int, int)>(setRangeName);
    }

    /// Returns the engine's return value.
    int Recognise(Plates& plates, tagRECT* region = nullptr) {
        plates = {};
        IMG image{2, 2, 3, 8, pixels.data()};
        return recognise(nullptr, &image, region, plates.data(), 0);
    }

    /// Returns the text of the only plate, or nothing if there is none.
    std::optional<std::string> Read() {
        Plates plates;
        return Recognise(plates) == 1 ? std::optional(TextOf(plates[0])) : std::nullopt;
    }

    static std::string TextOf(const RPLATE& plate) {
        return {plate.text, std::find(std::begin(plate.text), std::end(plate.text), '\0')};
    }

    std::vector<json> Journal() const {
        std::ifstream stream(folder / "journal");
        std::vector<json> lines;
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(json::parse(line));
        }
        return lines;
    }

    std::filesystem::path ScriptFile() const { return folder / "script.json"; }

    static json Plate(const std::string& text) {
        return {
            {"text", text}, {"confidence", 95.5}, {"corners", json::array({{10, 20}, {12, 40}, {60, 18}, {62, 41}})}};
    }

    static json Frame(const std::string& text) { return {{"plates", {Plate(text)}}}; }

    /// Returns the engine's error message about a script at the first call. The calls must act as if there were no
    /// script.
    std::string ErrorMessageFor(const std::string& script) {
        Load(script);
        testing::internal::CaptureStderr();
        Plates plates;
        EXPECT_EQ(Recognise(plates), 0);
        EXPECT_TRUE(setRange(1, 2));
        return testing::internal::GetCapturedStderr();
    }

    std::filesystem::path folder;
    boost::dll::shared_library library;
    int (*recognise)(YUV420_IMG*, IMG*, tagRECT*, RPLATE*, int) = nullptr;
    bool (*setRange)(int, int) = nullptr;
    // Two rows of two pixels, each followed by two padding bytes.
    std::array<std::uint8_t, 16> pixels{1, 2, 3, 4, 5, 6, 99, 99, 7, 8, 9, 10, 11, 12, 99, 99};
};

TEST_F(ScriptedEngine, WritesAPlateAtTheCallersOffsets) {
    Load({{"frames", {Frame("AB123C")}}});
    Plates plates;
    ASSERT_EQ(Recognise(plates), 1);
    EXPECT_EQ(TextOf(plates[0]), "AB123C");
    EXPECT_EQ(ConfidenceSumOf(plates[0]), 95.5);
    const auto* bytes = reinterpret_cast<const char*>(plates.data());
    std::array<std::int32_t, 8> corners{};
    std::memcpy(corners.data(), bytes + 128, sizeof corners);
    EXPECT_THAT(corners, ElementsAre(10, 20, 12, 40, 60, 18, 62, 41));
    EXPECT_EQ(TextOf(plates[1]), "");
}

TEST_F(ScriptedEngine, ReturnsTextInTheEnginesCodePage) {
    Load({{"frames", {Frame("\u4eacA12345")}}});
    EXPECT_EQ(Read(),
              "\xBE\xA9"
              "A12345");
}

TEST_F(ScriptedEngine, ReturnsBytesUnchanged) {
    json fromDigits = Plate("");
    fromDigits.erase("text");
    json fromNumbers = fromDigits;
    fromDigits["bytes"] = "81300041fFfFffFFffffffffffffffff";
    fromNumbers["bytes"] = {129, 48};
    Load({{"frames", {{{"plates", {fromDigits, fromNumbers}}}}}});
    Plates plates;
    ASSERT_EQ(Recognise(plates), 2);
    EXPECT_EQ(std::string(plates[0].text, 16), std::string("\x81\x30\x00\x41", 4) + std::string(12, '\xFF'));
    EXPECT_EQ(TextOf(plates[1]), "\x81\x30");
}

TEST_F(ScriptedEngine, PlaysFrameAfterFrameAndThenFindsNothing) {
    Load({{"frames", {Frame("A"), json::object(), Frame("B")}}});
    EXPECT_EQ(Read(), "A");
    EXPECT_EQ(Read(), std::nullopt);
    EXPECT_EQ(Read(), "B");
    EXPECT_EQ(Read(), std::nullopt);
    EXPECT_EQ(Read(), std::nullopt);
}

TEST_F(ScriptedEngine, RepeatsTheFrames) {
    Load({{"repeat", true}, {"frames", {Frame("A"), Frame("B")}}});
    EXPECT_EQ(Read(), "A");
    EXPECT_EQ(Read(), "B");
    EXPECT_EQ(Read(), "A");
}

TEST_F(ScriptedEngine, ReturnsAScriptedCount) {
    json many = Frame("A");
    many["count"] = 7;
    Load({{"frames", {many, {{"count", -1}}}}});
    Plates plates;
    EXPECT_EQ(Recognise(plates), 7);
    EXPECT_EQ(TextOf(plates[0]), "A");
    EXPECT_EQ(TextOf(plates[1]), "");
    EXPECT_EQ(Recognise(plates), -1);
}

TEST_F(ScriptedEngine, WritesNothingAfterTheRecords) {
    const json frame = {{"plates", {Plate("A"), Plate("B"), Plate("C"), Plate("D"), Plate("E")}}};
    Load({{"frames", {frame}}});
    std::array<RPLATE, engineRecordCount + 1> records{};
    std::memset(&records.back(), 0x5A, sizeof(RPLATE));
    IMG image{2, 2, 3, 8, pixels.data()};
    EXPECT_EQ(recognise(nullptr, &image, nullptr, records.data(), 0), 5);
    EXPECT_EQ(TextOf(records[4]), "E");
    const auto* end = reinterpret_cast<const unsigned char*>(&records.back());
    EXPECT_TRUE(std::all_of(end, end + sizeof(RPLATE), [](unsigned char byte) { return byte == 0x5A; }));
}

TEST_F(ScriptedEngine, WritesNothingWithoutRecords) {
    Load({{"frames", {Frame("A")}}});
    EXPECT_EQ(recognise(nullptr, nullptr, nullptr, nullptr, 0), 0);
}

TEST_F(ScriptedEngine, RefusesTheRangesThatTheScriptNames) {
    Load({{"refused_ranges", {0, 2}}});
    EXPECT_FALSE(setRange(1, 2));
    EXPECT_TRUE(setRange(1, 2));
    EXPECT_FALSE(setRange(1, 2));
    EXPECT_TRUE(setRange(1, 2));
}

TEST_F(ScriptedEngine, RefusesEveryRange) {
    Load({{"refused_ranges", "all"}});
    EXPECT_FALSE(setRange(1, 2));
    EXPECT_FALSE(setRange(1, 2));
}

TEST_F(ScriptedEngine, CountsAllThreadsTogetherByDefault) {
    Load({{"frames", {Frame("A"), Frame("B")}}});
    EXPECT_EQ(Read(), "A");
    std::optional<std::string> other;
    std::thread([&] { other = Read(); }).join();
    EXPECT_EQ(other, "B");
}

TEST_F(ScriptedEngine, PlaysTheSameFramesToEveryThread) {
    Load({{"counting", "thread"}, {"refused_ranges", {1}}, {"frames", {Frame("A"), Frame("B"), Frame("C")}}});
    const auto play = [this](std::vector<std::string>& texts, std::vector<bool>& ranges) {
        for (int i = 0; i < 3; ++i) {
            ranges.push_back(setRange(1, 2));
            texts.push_back(Read().value_or("nothing"));
        }
    };
    std::array<std::vector<std::string>, 4> texts;
    std::array<std::vector<bool>, 4> ranges;
    {
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < texts.size(); ++i) {
            threads.emplace_back([&play, &text = texts[i], &range = ranges[i]] { play(text, range); });
        }
    }
    EXPECT_THAT(texts, testing::Each(ElementsAre("A", "B", "C")));
    EXPECT_THAT(ranges, testing::Each(ElementsAre(true, false, true)));
}

TEST_F(ScriptedEngine, PlaysEveryFrameToOneOfManyThreads) {
    json frames = json::array();
    std::set<std::string> wanted;
    for (int i = 0; i < 200; ++i) {
        const std::string text = std::to_string(i);
        wanted.insert(text);
        frames.push_back(Frame(text));
    }
    Load({{"journal", "journal"}, {"frames", frames}});
    std::array<std::vector<std::string>, 4> texts;
    {
        std::vector<std::jthread> threads;
        for (auto& mine : texts) {
            threads.emplace_back([this, &mine] {
                for (int i = 0; i < 50; ++i) {
                    mine.push_back(Read().value_or("nothing"));
                }
            });
        }
    }
    std::set<std::string> seen;
    for (const auto& mine : texts) {
        seen.insert(mine.begin(), mine.end());
    }
    EXPECT_EQ(seen, wanted);
    EXPECT_EQ(Journal().size(), 200U);
}

TEST_F(ScriptedEngine, KeepsAJournalOfEveryCall) {
    Load({{"journal", "journal"}, {"refused_ranges", {0}}, {"frames", {Frame("A")}}});
    setRange(64, 256);
    Plates plates;
    tagRECT region{1, 2, 3, 4};
    Recognise(plates, &region);
    std::thread([&] { recognise(nullptr, nullptr, nullptr, plates.data(), 3); }).join();

    const std::vector<json> lines = Journal();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], json({{"call", "SetPlateRange"},
                              {"number", 0},
                              {"thread", 0},
                              {"thread_number", 0},
                              {"minimum_width", 64},
                              {"maximum_width", 256},
                              {"answer", false}}));
    std::uint64_t sum = 0xcbf29ce484222325U;
    for (std::uint64_t byte = 1; byte <= 12; ++byte) {
        sum = (sum ^ byte) * 0x100000001b3U;
    }
    EXPECT_EQ(std::stoull(lines[1]["image"]["checksum"].get<std::string>(), nullptr, 16), sum);
    json withoutChecksum = lines[1];
    withoutChecksum["image"].erase("checksum");
    EXPECT_EQ(withoutChecksum,
              json({{"call", "Recognize2"},
                    {"number", 0},
                    {"thread", 0},
                    {"thread_number", 0},
                    {"image", {{"width", 2}, {"height", 2}, {"bytes_per_pixel", 3}, {"row_stride", 8}}},
                    {"region", {{"left", 1}, {"top", 2}, {"right", 3}, {"bottom", 4}}},
                    {"first_argument_is_null", true},
                    {"flags", 0},
                    {"answer", 1}}));
    EXPECT_EQ(lines[2], json({{"call", "Recognize2"},
                              {"number", 1},
                              {"thread", 1},
                              {"thread_number", 0},
                              {"image", nullptr},
                              {"region", nullptr},
                              {"first_argument_is_null", true},
                              {"flags", 3},
                              {"answer", 0}}));
}

TEST_F(ScriptedEngine, PlaysWithoutAJournalThatCannotBeWritten) {
    Load({{"journal", "no/such/folder"}, {"frames", {Frame("A")}}});
    testing::internal::CaptureStderr();
    EXPECT_EQ(Read(), "A");
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("cannot be written"));
}

TEST_F(ScriptedEngine, ReportsThatThereIsNoScriptAndFindsNothing) {
    test_support::UnsetEnvironment("VEXLANE_SCRIPT");
    LoadLibrary();
    testing::internal::CaptureStderr();
    EXPECT_EQ(Read(), std::nullopt);
    EXPECT_TRUE(setRange(1, 2));
    const std::string message = testing::internal::GetCapturedStderr();
    EXPECT_THAT(message, HasSubstr("VEXLANE_SCRIPT"));
    EXPECT_EQ(std::count(message.begin(), message.end(), '\n'), 1);
}

TEST_F(ScriptedEngine, ReportsThatTheScriptIsMissingAndFindsNothing) {
    LoadNamed((folder / "missing.json").string());
    testing::internal::CaptureStderr();
    EXPECT_EQ(Read(), std::nullopt);
    EXPECT_TRUE(setRange(1, 2));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), AllOf(HasSubstr("missing.json"), HasSubstr("opened")));
}

struct ScriptError {
    const char* name;
    std::string script;
    const char* message;
};

void PrintTo(const ScriptError& wrong, std::ostream* stream) {
    *stream << wrong.name;
}

class InvalidScript : public ScriptedEngine, public testing::WithParamInterface<ScriptError> {};

TEST_P(InvalidScript, IsReportedInOneLineAndFindsNothing) {
    const std::string message = ErrorMessageFor(GetParam().script);
    EXPECT_THAT(message, HasSubstr(GetParam().message));
    EXPECT_EQ(std::count(message.begin(), message.end(), '\n'), 1);
}

/// A script of two frames, the first with a valid plate, the second with this one.
std::string WithPlate(const std::string& plate) {
    return R"({"frames": [{"plates": [{"text": "A", "confidence": 1, "corners": [[0,0],[0,1],[1,0],[1,1]]}]},
               {"plates": [)" +
           plate + "]}]}";
}

const std::string corners = R"("corners": [[0,0],[0,1],[1,0],[1,1]])";

INSTANTIATE_TEST_SUITE_P(
    Everywhere, InvalidScript,
    testing::Values(
        ScriptError{"NotJson", "{\"frames\": [\n", "parse error"}, ScriptError{"NotUtf8", "{\"a\": \"\xFF\"}", "UTF-8"},
        ScriptError{"Empty", "", "parse error"}, ScriptError{"NoObject", "[]", "script: an object"},
        ScriptError{"UnknownSetting", R"({"frame": []})", R"(there is no setting "frame")"},
        ScriptError{"UnknownCounting", R"({"counting": "channel"})", "counting: "},
        ScriptError{"RepeatIsNoBoolean", R"({"repeat": 1})", "repeat: "},
        ScriptError{"FramesAreNoList", R"({"frames": {}})", "frames: a list"},
        ScriptError{"FrameIsNoObject", R"({"frames": [{}, 3]})", "frames[1]: an object"},
        ScriptError{"CountIsNoNumber", R"({"frames": [{"count": "1"}]})", "frames[0].count: a whole number"},
        ScriptError{"CountIsTooLarge", R"({"frames": [{"count": 18446744073709551615}]})", "does not fit"},
        ScriptError{"CountIsTooSmall", R"({"frames": [{"count": -2147483649}]})", "does not fit"},
        ScriptError{"RefusedRangeIsAWord", R"({"refused_ranges": "some"})", "refused_ranges: "},
        ScriptError{"RefusedRangeIsNegative", R"({"refused_ranges": [1, -1]})", "refused_ranges[1]: "},
        ScriptError{"NoText", WithPlate(R"({"confidence": 1, )" + corners + "}"), "frames[1].plates[0]: either"},
        ScriptError{"TextAndBytes", WithPlate(R"({"text": "A", "bytes": "41", "confidence": 1, )" + corners + "}"),
                    "frames[1].plates[0]: either"},
        ScriptError{"TextTooLong", WithPlate(R"({"text": "ABCDEFGHIJKLMNOPQ", "confidence": 1, )" + corners + "}"),
                    "16 bytes"},
        ScriptError{"TextBeyondTheCodePage", WithPlate(R"({"text": "A\u0e01", "confidence": 1, )" + corners + "}"),
                    "frames[1].plates[0].text: "},
        ScriptError{"OddDigits", WithPlate(R"({"bytes": "414", "confidence": 1, )" + corners + "}"), "pairs of"},
        ScriptError{"NoDigits", WithPlate(R"({"bytes": "4G", "confidence": 1, )" + corners + "}"), "pairs of"},
        ScriptError{"ByteTooLarge", WithPlate(R"({"bytes": [256], "confidence": 1, )" + corners + "}"),
                    "frames[1].plates[0].bytes[0]: "},
        ScriptError{"NoConfidence", WithPlate(R"({"text": "A", )" + corners + "}"), "confidence: a number"},
        ScriptError{"ThreeCorners", WithPlate(R"({"text": "A", "confidence": 1, "corners": [[0,0],[0,1],[1,0]]})"),
                    "corners: four"},
        ScriptError{"CornerOfThree",
                    WithPlate(R"({"text": "A", "confidence": 1, "corners": [[0,0],[0,1],[1,0],[1,1,1]]})"),
                    "corners[3]: a pair"},
        ScriptError{"SixPlates",
                    [] {
                        const std::string plate = R"({"text": "A", "confidence": 1, )" + corners + "}";
                        return WithPlate(plate + "," + plate + "," + plate + "," + plate + "," + plate + "," + plate);
                    }(),
                    "room for 5 plates"}),
    [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
