// The level from a tree of folders, as it stands on a machine.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "diagnostics/debug_level.h"
#include "diagnostics/registry_key.h"

namespace {

using diagnostics::ReadDebugLevel;
namespace fs = std::filesystem;

constexpr char machineHive[] = "HKEY_LOCAL_MACHINE";
constexpr char userHive[] = "HKEY_CURRENT_USER";

class DebugLevelFolder : public testing::Test {
  protected:
    DebugLevelFolder() {
        char name[] = "/tmp/vexlane-registry-XXXXXX";
        registry = mkdtemp(name);
        setenv("VEXLANE_REGISTRY", registry.c_str(), 1);
    }
    ~DebugLevelFolder() override {
        unsetenv("VEXLANE_REGISTRY");
        fs::remove_all(registry);
    }

    fs::path Key(const std::string& hive) const {
        return registry / hive / "SOFTWARE" / "Tellumark" / "KORA" / "DEBUG";
    }

    void Store(const std::string& hive, const std::string& bytes) const {
        fs::create_directories(Key(hive));
        std::ofstream(Key(hive) / "DebugLevel", std::ios::binary) << bytes;
    }

    // A file in the hive's place: nothing can be opened or made under it.
    void Block(const std::string& hive) const { std::ofstream(registry / hive) << "no folder"; }

    fs::path registry;
};

TEST_F(DebugLevelFolder, OfTheMachineHiveIsRead) {
    Store(machineHive, "3");
    EXPECT_EQ(ReadDebugLevel(), 3);
    EXPECT_FALSE(fs::exists(registry / userHive));
}

TEST_F(DebugLevelFolder, OfTheUserHiveIsReadWhenTheMachineHiveHasNoKey) {
    Store(userHive, "-5");
    EXPECT_EQ(ReadDebugLevel(), -5);
    EXPECT_FALSE(fs::exists(registry / machineHive));
}

TEST_F(DebugLevelFolder, OfTheMachineHiveGoesBeforeTheUsers) {
    Store(machineHive, "1");
    Store(userHive, "2");
    EXPECT_EQ(ReadDebugLevel(), 1);
}

TEST_F(DebugLevelFolder, AKeyWithoutTheValueInTheMachineHiveStillGoesBeforeTheUsers) {
    fs::create_directories(Key(machineHive));
    Store(userHive, "2");
    EXPECT_EQ(ReadDebugLevel(), 0);
}

TEST_F(DebugLevelFolder, AMissingKeyIsMadeInTheMachineHiveAndStaysEmpty) {
    EXPECT_EQ(ReadDebugLevel(), 0);
    EXPECT_TRUE(fs::is_directory(Key(machineHive)));
    EXPECT_TRUE(fs::is_empty(Key(machineHive)));
    EXPECT_FALSE(fs::exists(registry / userHive));
}

TEST_F(DebugLevelFolder, AMissingKeyIsMadeInTheUserHiveWhenTheMachineHiveRefuses) {
    Block(machineHive);
    EXPECT_EQ(ReadDebugLevel(), 0);
    EXPECT_TRUE(fs::is_directory(Key(userHive)));
    EXPECT_TRUE(fs::is_empty(Key(userHive)));
}

TEST_F(DebugLevelFolder, IsZeroWhenBothHivesRefuse) {
    Block(machineHive);
    Block(userHive);
    EXPECT_EQ(ReadDebugLevel(), 0);
    EXPECT_FALSE(diagnostics::RegistryKey("SOFTWARE\\Tellumark\\KORA\\DEBUG").IsOpen());
    EXPECT_TRUE(fs::is_regular_file(registry / machineHive));
    EXPECT_TRUE(fs::is_regular_file(registry / userHive));
}

TEST_F(DebugLevelFolder, AKeyThatWasMadeIsFoundTheNextTime) {
    EXPECT_EQ(ReadDebugLevel(), 0);
    std::ofstream(Key(machineHive) / "DebugLevel") << "6";
    EXPECT_EQ(ReadDebugLevel(), 6);
}

TEST_F(DebugLevelFolder, ATextWithItsNulAndOneWithoutAreTheSame) {
    Store(machineHive, std::string("12\0", 3));
    EXPECT_EQ(ReadDebugLevel(), 12);
    Store(machineHive, "12");
    EXPECT_EQ(ReadDebugLevel(), 12);
}

TEST_F(DebugLevelFolder, ANumberOf32BitsIsReadAsText) {
    Store(machineHive, std::string("\x01\0\0\0", 4));
    EXPECT_EQ(ReadDebugLevel(), 0);
}

TEST_F(DebugLevelFolder, AValueOf10240BytesIsReadAndALongerOneIsNot) {
    Store(machineHive, std::string(10239, '0') + "7");
    EXPECT_EQ(ReadDebugLevel(), 7);
    Store(machineHive, std::string(10240, '0') + "7");
    EXPECT_EQ(ReadDebugLevel(), 0);
}

}  // namespace
