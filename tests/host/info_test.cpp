#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "sdk/setting_keys.h"
#include "tests/host/process.h"
#include "tests/host/temporary_folder.h"
#include "tools/host/system.h"

namespace host_test {
namespace {

using testing::HasSubstr;

const std::vector<std::string> infoCommand{"info", "--plugin", HOST_TEST_PLUGIN, "--engine", HOST_TEST_ENGINE_ONE};

std::string Part(const std::string& text, const std::string& from, const std::string& to) {
    const std::size_t begin = text.find(from);
    const std::size_t end = text.find(to, begin);
    return begin == std::string::npos || end == std::string::npos ? std::string() : text.substr(begin, end - begin);
}

TEST(Info, PrintsTheContractsOfTheModule) {
    const Finished run = RunHost(infoCommand);
    ASSERT_EQ(run.status, 0) << run.errors;
    const std::string module = Part(run.output, "contracts of the module\n", "\ncontracts of a detector\n");
    EXPECT_THAT(module, testing::ContainsRegex("struct OKM8::IContract +yes\n"));
    EXPECT_THAT(module, testing::ContainsRegex(
                            "struct OKM8::PLUGIN::IPluginModule +yes, the same object as struct OKM8::IContract\n"));
    EXPECT_THAT(module, testing::ContainsRegex(
                            "struct OKM8::Analytics::IModule +yes, the same object as struct OKM8::IContract\n"));
    EXPECT_THAT(module, testing::ContainsRegex("struct OKM8::Analytics::IDetector +no\n"));
    EXPECT_EQ(std::count(module.begin(), module.end(), '\n'), 22) << "a heading and every name";
}

TEST(Info, PrintsTheContractsOfADetector) {
    const Finished run = RunHost(infoCommand);
    const std::string detector = Part(run.output, "contracts of a detector\n", "\nsettings of a detector");
    EXPECT_THAT(detector, testing::ContainsRegex(
                              "struct OKM8::Analytics::IDetector +yes, the same object as struct OKM8::IContract\n"));
    EXPECT_THAT(detector,
                testing::ContainsRegex("struct OKM8::Analytics::IMediaReceiverSingle +yes, a separate object\n"));
    EXPECT_THAT(detector,
                testing::ContainsRegex("struct OKM8::Analytics::IMediaReceiverSingle2 +yes, the same object as struct "
                                       "OKM8::Analytics::IMediaReceiverSingle\n"));
    EXPECT_THAT(detector, testing::ContainsRegex("struct OKM8::Analytics::IModule +no\n"));
}

TEST(Info, PrintsTheTypesThatTheSettingsAccept) {
    const Finished run = RunHost(infoCommand);
    const std::string settings = Part(run.output, "settings of a detector and their types\n", "\nthe debug level");
    EXPECT_THAT(settings, testing::StartsWith("settings of a detector and their types\n"
                                              "  use_half_cadr       bool\n"
                                              "  id                  string\n"
                                              "  name                string\n"
                                              "  use_area            bool\n"
                                              "  area_left           int\n"
                                              "  area_top            int\n"
                                              "  area_right          int\n"
                                              "  area_bottom         int\n"
                                              "  zone_width          int\n"
                                              "  zone_width_min      int\n"
                                              "  result_ready        bool\n"
                                              "  result_wait_time    int\n"
                                              "  result_rec_count    int\n"));
    EXPECT_THAT(settings, testing::EndsWith("\n  (any other)         refused\n"));
    EXPECT_EQ(std::count(settings.begin(), settings.end(), '\n'), 2 + std::ssize(OKM8::Analytics::SettingKey::All))
        << "a heading, every key and any other";
}

TEST(Info, PrintsWhereTheDebugLevelIsRead) {
    std::string places =
        "the debug level is the value DebugLevel of the key SOFTWARE\\Tellumark\\KORA\\DEBUG, read from\n";
    for (const std::string& place : plate_host::DebugLevelPlaces()) {
        places += "  " + place + "\n";
    }
    EXPECT_THAT(RunHost(infoCommand).output, testing::EndsWith(places));
}

TEST(Info, FinalizesAndUnloadsTheLibraryInOrder) {
    EXPECT_EQ(RunHost(infoCommand).errors,
              "plate-host: log 3: detector made\n"
              "plate-host: log 3: detector destroyed\n"
              "plate-host: log 3: module finalized\n"
              "test plug-in unloaded\n");
}

TEST(Info, AMissingLibraryIsAOneLineError) {
    const TemporaryFolder folder;
    const std::string library = folder.Path("library");
    const Finished run = RunHost({"info", "--plugin", library, "--engine", HOST_TEST_ENGINE_ONE});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.errors,
              "plate-host: cannot load the library \"" + library + "\": no such file; set its path with --plugin\n");
}

}  // namespace
}  // namespace host_test
