#include "reference/server/configuration.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/environment.h"

namespace reading_service {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ConfigurationFile : public testing::Test {
  protected:
    ConfigurationFile() {
        std::filesystem::create_directories(folder);
        test_support::SetEnvironment("VEXLANE_READING_CONFIG", "");
    }
    ~ConfigurationFile() override { std::filesystem::remove_all(folder); }

    plate_reading::ReadingOptions Load() {
        std::ostringstream errors;
        const plate_reading::ReadingOptions options = LoadConfiguration(folder, errors);
        message = errors.str();
        return options;
    }

    static void Write(const std::filesystem::path& path, const std::string& text) { std::ofstream(path) << text; }

    void ExpectOneErrorAndDefaults(const std::string& about) {
        const plate_reading::ReadingOptions options = Load();
        EXPECT_THAT(options.templates, IsEmpty());
        EXPECT_EQ(options.confirmations, plate_reading::ReadingOptions().confirmations);
        EXPECT_THAT(message, testing::AllOf(HasSubstr(about), HasSubstr("the defaults are used")));
        EXPECT_EQ(message.find('\n'), message.size() - 1);
    }

    const std::filesystem::path folder =
        std::filesystem::path(testing::TempDir()) /
        (std::string("plate server ") + testing::UnitTest::GetInstance()->current_test_info()->name());
    std::string message;
};

TEST_F(ConfigurationFile, MayBeMissing) {
    EXPECT_THAT(Load().templates, IsEmpty());
    EXPECT_EQ(message, "");
}

TEST_F(ConfigurationFile, IsInTheProgramsFolder) {
    Write(folder / "plate-Server.conf", "templates = br\nconfirmations = 1\n");
    const plate_reading::ReadingOptions options = Load();
    EXPECT_THAT(options.templates, ElementsAre("LLLDDDD", "LLLDLDD"));
    EXPECT_EQ(options.confirmations, 1);
    EXPECT_EQ(message, "");
}

TEST_F(ConfigurationFile, IsTheOneThatTheEnvironmentNames) {
    Write(folder / "plate-Server.conf", "templates = br\n");
    Write(folder / "other", "templates = LLDDDLL\n");
    test_support::SetEnvironment("VEXLANE_READING_CONFIG", (folder / "other").string());
    EXPECT_THAT(Load().templates, ElementsAre("LLDDDLL"));
}

TEST_F(ConfigurationFile, InvalidFileGivesOneLineAndTheDefaults) {
    Write(folder / "plate-Server.conf", "confirmations = 1\ntemplates = br\ntemplate = eu\n");
    ExpectOneErrorAndDefaults("line 3: there is no key \"template\"");
}

TEST_F(ConfigurationFile, MissingNamedFileGivesOneLineAndTheDefaults) {
    test_support::SetEnvironment("VEXLANE_READING_CONFIG", (folder / "none").string());
    ExpectOneErrorAndDefaults("cannot be read");
    test_support::SetEnvironment("VEXLANE_READING_CONFIG", folder.string());
    ExpectOneErrorAndDefaults("cannot be read");
}

}  // namespace
}  // namespace reading_service
