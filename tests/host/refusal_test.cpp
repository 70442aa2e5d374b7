// Runs that fail at the start: one line on standard error, exit status 2.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/host/pictures.h"
#include "tests/host/play_command.h"
#include "tests/host/process.h"
#include "tests/host/system_text.h"
#include "tests/host/temporary_folder.h"
#include "tools/host/engine_hook.h"
#include "tools/host/failure.h"
#include "tools/host/plugin.h"
#include "tools/host/system.h"

namespace host_test {
namespace {

using testing::HasSubstr;

void ExpectOneLine(const Finished& run, const std::string& part) {
    EXPECT_EQ(run.status, 2) << run.errors;
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(std::count(run.errors.begin(), run.errors.end(), '\n'), 1) << run.errors;
    EXPECT_THAT(run.errors, testing::StartsWith("plate-host: "));
    EXPECT_THAT(run.errors, HasSubstr(part));
}

class Refusal : public testing::Test {
  protected:
    const TemporaryFolder folder;
    const std::string video = folder.Write("video.y4m", Y4mStream(16, 16, 2));
};

TEST_F(Refusal, AMissingVideo) {
    ExpectOneLine(RunHost(PlayCommand(folder.Path("none.y4m"), {})), "none.y4m\": " + SystemText::NoSuchFile());
}

TEST_F(Refusal, AFolderAsVideo) {
    ExpectOneLine(RunHost(PlayCommand(folder.MakeFolder("folder.y4m"), {})), SystemText::Folder());
    const std::string plain = folder.MakeFolder("folder");
    ExpectOneLine(RunHost(PlayCommand(plain, {})), "cannot open \"" + plain + "\"");
}

TEST_F(Refusal, AFileThatIsNotAVideo) {
    ExpectOneLine(RunHost(PlayCommand(folder.Write("text.mp4", "no video at all\n"), {})), "cannot open");
    ExpectOneLine(RunHost(PlayCommand(folder.Write("empty.mp4", ""), {})), "cannot open");
}

TEST_F(Refusal, ABrokenStream) {
    ExpectOneLine(RunHost(PlayCommand("-", {}), ""), "cannot read \"standard input\" as Y4M: it is empty");
    ExpectOneLine(RunHost(PlayCommand("-", {}), "RIFF\n"), "it does not begin with YUV4MPEG2");
    ExpectOneLine(RunHost(PlayCommand("-", {}), "YUV4MPEG2 W16"), "");
    ExpectOneLine(RunHost(PlayCommand("-", {}), std::string(10000, 'x')), "");
    ExpectOneLine(RunHost(PlayCommand("-", {}), "YUV4MPEG2 W16 H16 C444\n"), "C444; only 8-bit 4:2:0 and mono");
    ExpectOneLine(RunHost(PlayCommand("-", {}), Y4mHeaderLine(16, 16)), "\"-\" contains no frame");
    ExpectOneLine(RunHost(PlayCommand("-", {}), Y4mHeaderLine(16, 16) + "FRAME\nshort"),
                  "contains no frame: frame 0 is cut off");
}

TEST_F(Refusal, AMissingLibrary) {
    ExpectOneLine(
        RunHost({"play", video, "--plugin", folder.Path("none.so"), "--engine", HOST_TEST_ENGINE_ONE}),
        "cannot load the library \"" + folder.Path("none.so") + "\": no such file; set its path with --plugin");
}

TEST_F(Refusal, AFileThatIsNotALibrary) {
    const std::string text = folder.Write("text.so", std::string(5000, 'x'));
    ExpectOneLine(RunHost({"play", video, "--plugin", text, "--engine", HOST_TEST_ENGINE_ONE}),
                  "cannot load the library \"" + text + "\": " + SystemText::NoLibrary(text));
}

TEST_F(Refusal, ALibraryWithoutItsExports) {
    ExpectOneLine(RunHost({"play", video, "--plugin", HOST_TEST_INCOMPLETE_PLUGIN, "--engine", HOST_TEST_ENGINE_ONE}),
                  "is not a detector library: it does not export GetModule");
}

TEST_F(Refusal, AMissingEngine) {
    ExpectOneLine(
        RunHost({"play", video, "--plugin", HOST_TEST_PLUGIN, "--engine", folder.Path("none.so")}),
        "cannot load the engine \"" + folder.Path("none.so") + "\": no such file; set its path with --engine");
}

TEST_F(Refusal, NoEngineBesideTheProgram) {
    const std::string program = CopyHost(folder);
    HostProcess process(
        {.program = plate_host::ToPath(program), .arguments = {"play", video, "--plugin", HOST_TEST_PLUGIN}});
    ExpectOneLine(process.Wait(), "cannot load the engine \"" + folder.Path(plate_host::EngineFileName()) +
                                      "\": no such file; set its path with --engine");
}

TEST_F(Refusal, AFileThatIsNotAnEngine) {
    const std::string text = folder.Write("engine.so", "x");
    ExpectOneLine(RunHost({"info", "--plugin", HOST_TEST_PLUGIN, "--engine", text}),
                  "cannot load the engine \"" + text + "\": " + SystemText::ShortLibrary(text));
}

TEST_F(Refusal, AFileThatNeedsALibraryThatIsMissing) {
    const std::string other = folder.Copy(HOST_TEST_PLUGIN, "other.dll");
    ExpectOneLine(RunHost({"info", "--plugin", HOST_TEST_PLUGIN, "--engine", other}),
                  "cannot load the engine \"" + other + "\": " + SystemText::LibraryWithoutEngine() + "\n");
}

TEST_F(Refusal, AnEngineToWhichTheLibraryWouldNotBind) {
    ExpectOneLine(RunHost({"info", "--plugin", HOST_TEST_PLUGIN, "--engine", HOST_TEST_ENGINE_MISNAMED}),
                  std::string("its name must be ") + plate_host::EngineFileName());
}

TEST_F(Refusal, AHookWithoutTheRecordingEngine) {
    // Beside this test's program there is none.
    class Hook : public plate_host::EngineHook {
        int Recognise(const plate_host::EngineFunctions&, IMG*, tagRECT*, RPLATE*, int) override { return 0; }
        bool SetRange(const plate_host::EngineFunctions&, int, int) override { return true; }
    } hook;
    const plate_host::PluginPaths paths{.library = HOST_TEST_PLUGIN, .engine = HOST_TEST_ENGINE_ONE};
    EXPECT_THAT([&] { plate_host::Plugin plugin(paths, &hook); },
                testing::ThrowsMessage<plate_host::Failure>(
                    HasSubstr("cannot load the recording engine: there is no \"" +
                              std::string(plate_host::EngineFileName()) + "\" in the folder \"recording-engine\"")));
}

TEST_F(Refusal, ABadCommandLine) {
    ExpectOneLine(RunHost({}), "see plate-host --help");
    ExpectOneLine(RunHost({"dance"}), "see plate-host --help");
    ExpectOneLine(RunHost({"play"}), "see plate-host --help");
    ExpectOneLine(RunHost({"play", video, "--channels", "0"}), "--channels");
    ExpectOneLine(RunHost({"play", video, "--channels", "many"}), "--channels");
    ExpectOneLine(RunHost({"play", video, "--frames", "-1"}), "--frames");
    ExpectOneLine(RunHost({"play", video, "--single", "1,2,3"}), "\"1,2,3\" is not an area");
    ExpectOneLine(RunHost({"play", video, "--set", "nonsense"}), "\"nonsense\" is not a setting");
    ExpectOneLine(RunHost({"play", video, "--set", "=5"}), "\"=5\" is not a setting");
}

class RefusedSetting : public Refusal {
  protected:
    // The library's own log lines surround the one line of the host.
    void ExpectRefusal(const std::string& setting, const std::string& part) {
        const Finished run = RunHost(PlayCommand(video, {setting}));
        EXPECT_EQ(run.status, 2) << run.errors;
        EXPECT_EQ(run.output, "");
        EXPECT_THAT(run.errors, HasSubstr(part));
        EXPECT_THAT(run.errors, HasSubstr("log 3: detector destroyed\nplate-host: log 3: module finalized\n"
                                          "test plug-in unloaded\nplate-host: the detector "));
        EXPECT_THAT(run.errors, testing::Not(HasSubstr("summary")));
    }
};

TEST_F(RefusedSetting, PrintsTheDetectorsCodeTextAndSettings) {
    ExpectRefusal("zone=5",
                  "plate-host: the detector refuses \"zone=5\": code 2816, \"zone\"; its settings are use_half_cadr "
                  "(bool), id (string), name (string), use_area (bool), area_left (int), area_top (int), area_right "
                  "(int), area_bottom (int), zone_width (int), zone_width_min (int), result_ready (bool), "
                  "result_wait_time (int), result_rec_count (int)\n");
}

TEST_F(RefusedSetting, AValueThatNoTypeOfTheKeyFits) {
    ExpectRefusal("area_left=far", "refuses \"area_left=far\": code 2816, \"area_left\"");
    ExpectRefusal("area_left=99999999999", "refuses \"area_left=99999999999\": code 2816, \"area_left\"");
    ExpectRefusal("use_area=2", "refuses \"use_area=2\": code 2816, \"use_area\"");
}

TEST_F(RefusedSetting, SettingsThatCannotBeApplied) {
    ExpectRefusal("test_apply_fails=true", "the detector cannot apply its settings: code 1, \"nothing applies\"\n");
}

}  // namespace
}  // namespace host_test
