#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/last_error.h"
#include "platform/registry.h"

namespace {

using platform::RegistryHandle;
using platform::RegistryHive;

constexpr const char* keyPath = "SOFTWARE\\Tellumark\\KORA\\DEBUG";
constexpr std::uint32_t access = platform::registryAllAccess;

std::uint32_t Open(RegistryHive hive, const char* path, RegistryHandle& key) {
    return platform::OpenRegistryKey(hive, path, platform::registryAllAccess32BitView, key);
}

std::size_t OpenDescriptors() {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        static_cast<void>(entry);
        ++count;
    }
    return count;
}

class LinuxRegistry : public testing::Test {
  protected:
    LinuxRegistry() {
        char name[] = "/tmp/vexlane-registry-XXXXXX";
        root = mkdtemp(name);
        setenv("VEXLANE_REGISTRY", (root / "registry").c_str(), 1);
    }
    ~LinuxRegistry() override { std::filesystem::remove_all(root); }

    std::filesystem::path MachineFolder() const {
        return root / "registry/HKEY_LOCAL_MACHINE/SOFTWARE/Tellumark/KORA/DEBUG";
    }

    /// A key in the machine hive with one value.
    RegistryHandle KeyWithValue(const std::string& name, const std::string& bytes) {
        RegistryHandle key = 0;
        EXPECT_EQ(platform::CreateRegistryKey(RegistryHive::LocalMachine, keyPath, access, key), 0u);
        std::ofstream(MachineFolder() / name, std::ios::binary) << bytes;
        return key;
    }

    std::filesystem::path root;
};

TEST_F(LinuxRegistry, AKeyIsAFolderInItsHivesFolder) {
    RegistryHandle key = 0;
    ASSERT_EQ(platform::CreateRegistryKey(RegistryHive::LocalMachine, keyPath, access, key), 0u);
    platform::CloseRegistryKey(key);
    EXPECT_TRUE(std::filesystem::is_empty(MachineFolder()));
    ASSERT_EQ(platform::CreateRegistryKey(RegistryHive::CurrentUser, keyPath, access, key), 0u);
    platform::CloseRegistryKey(key);
    EXPECT_TRUE(std::filesystem::is_empty(root / "registry/HKEY_CURRENT_USER/SOFTWARE/Tellumark/KORA/DEBUG"));
}

TEST_F(LinuxRegistry, FailuresReturnTheSystemsError) {
    const RegistryHandle key = KeyWithValue("value", std::string(100, 'v'));
    char buffer[10] = {};
    std::uint32_t size = sizeof(buffer);
    EXPECT_EQ(platform::QueryRegistryValue(key, "value", buffer, size), static_cast<std::uint32_t>(ERANGE));
    EXPECT_EQ(platform::LastError(), static_cast<std::uint32_t>(ERANGE));
    EXPECT_EQ(platform::QueryRegistryValue(0, "value", buffer, size), static_cast<std::uint32_t>(EBADF));
    EXPECT_EQ(platform::LastError(), static_cast<std::uint32_t>(EBADF));
    platform::CloseRegistryKey(key);
}

TEST_F(LinuxRegistry, TheVariableIsReadAtEachCall) {
    platform::CloseRegistryKey(KeyWithValue("DebugLevel", "3"));
    setenv("VEXLANE_REGISTRY", (root / "other").c_str(), 1);
    RegistryHandle key = 0;
    EXPECT_NE(Open(RegistryHive::LocalMachine, keyPath, key), 0u);
}

TEST_F(LinuxRegistry, OnlyARegularFileIsAValue) {
    const RegistryHandle key = KeyWithValue("value", "1");
    std::filesystem::create_directory(MachineFolder() / "folder");
    ASSERT_EQ(mkfifo((MachineFolder() / "pipe").c_str(), 0600), 0);
    char buffer[4] = {};
    std::uint32_t size = sizeof(buffer);
    EXPECT_NE(platform::QueryRegistryValue(key, "folder", buffer, size), 0u);
    EXPECT_NE(platform::QueryRegistryValue(key, "pipe", buffer, size), 0u);  // and does not wait for a writer
    EXPECT_NE(platform::QueryRegistryValue(key, "", buffer, size), 0u);
    EXPECT_NE(platform::QueryRegistryValue(key, nullptr, buffer, size), 0u);
    platform::CloseRegistryKey(key);
}

TEST_F(LinuxRegistry, NamesCannotLeaveTheirFolder) {
    const RegistryHandle key = KeyWithValue("value", "1");
    std::ofstream(MachineFolder().parent_path() / "outside") << "secret";
    char buffer[16] = {};
    std::uint32_t size = sizeof(buffer);
    for (const char* name : {"../outside", "..", ".", "/etc/hostname", "./value"}) {
        EXPECT_NE(platform::QueryRegistryValue(key, name, buffer, size), 0u) << name;
    }
    platform::CloseRegistryKey(key);
    for (const char* path : {"SOFTWARE\\..\\SOFTWARE", "..", "SOFTWARE\\.", "SOFTWARE/Tellumark", "..\\..\\outside"}) {
        RegistryHandle opened = 7;
        EXPECT_EQ(Open(RegistryHive::LocalMachine, path, opened), static_cast<std::uint32_t>(EINVAL)) << path;
        EXPECT_EQ(opened, 0u);
        EXPECT_EQ(platform::CreateRegistryKey(RegistryHive::LocalMachine, path, access, opened),
                  static_cast<std::uint32_t>(EINVAL))
            << path;
        EXPECT_EQ(opened, 0u);
    }
    EXPECT_FALSE(std::filesystem::exists(root / "outside"));
}

TEST_F(LinuxRegistry, AHiveThatIsAFileRefusesEverything) {
    std::filesystem::create_directories(root / "registry");
    std::ofstream(root / "registry/HKEY_LOCAL_MACHINE") << "a file";
    for (const char* path : {keyPath, ""}) {
        RegistryHandle key = 7;
        EXPECT_EQ(Open(RegistryHive::LocalMachine, path, key), static_cast<std::uint32_t>(ENOTDIR));
        EXPECT_EQ(key, 0u);
        key = 7;
        EXPECT_EQ(platform::CreateRegistryKey(RegistryHive::LocalMachine, path, access, key),
                  static_cast<std::uint32_t>(ENOTDIR));
        EXPECT_EQ(key, 0u);
    }
}

TEST_F(LinuxRegistry, AFileIsNotAKey) {
    platform::CloseRegistryKey(KeyWithValue("value", "1"));
    RegistryHandle key = 0;
    const std::string path = std::string(keyPath) + "\\value";
    EXPECT_EQ(Open(RegistryHive::LocalMachine, path.c_str(), key), static_cast<std::uint32_t>(ENOTDIR));
    EXPECT_EQ(platform::CreateRegistryKey(RegistryHive::LocalMachine, path.c_str(), access, key),
              static_cast<std::uint32_t>(ENOTDIR));
}

TEST_F(LinuxRegistry, WithoutTheVariableTheUserHiveIsInTheConfigurationFolder) {
    unsetenv("VEXLANE_REGISTRY");
    setenv("HOME", (root / "home").c_str(), 1);
    for (const char* configuration : {"", "relative", "set"}) {
        const std::string folder =
            configuration == std::string("set") ? (root / "configuration").string() : std::string(configuration);
        setenv("XDG_CONFIG_HOME", folder.c_str(), 1);
        const std::filesystem::path expected =
            (folder.starts_with('/') ? root / "configuration" : root / "home/.config") /
            "vexlane/HKEY_CURRENT_USER/SOFTWARE/Tellumark/KORA/DEBUG";
        std::filesystem::remove_all(root / "home");
        RegistryHandle key = 0;
        EXPECT_NE(Open(RegistryHive::CurrentUser, keyPath, key), 0u);
        ASSERT_EQ(platform::CreateRegistryKey(RegistryHive::CurrentUser, keyPath, access, key), 0u);
        platform::CloseRegistryKey(key);
        EXPECT_TRUE(std::filesystem::is_directory(expected)) << expected;
    }
    unsetenv("XDG_CONFIG_HOME");
    RegistryHandle key = 0;
    ASSERT_EQ(platform::CreateRegistryKey(RegistryHive::CurrentUser, "unset", access, key), 0u);
    platform::CloseRegistryKey(key);
    EXPECT_TRUE(std::filesystem::is_directory(root / "home/.config/vexlane/HKEY_CURRENT_USER/unset"));
}

TEST_F(LinuxRegistry, WithoutAnyVariableTheUserHiveFails) {
    unsetenv("VEXLANE_REGISTRY");
    unsetenv("XDG_CONFIG_HOME");
    for (const bool empty : {false, true}) {
        if (empty) {
            setenv("HOME", "", 1);
        } else {
            unsetenv("HOME");
        }
        RegistryHandle key = 7;
        EXPECT_EQ(platform::CreateRegistryKey(RegistryHive::CurrentUser, keyPath, access, key),
                  static_cast<std::uint32_t>(ENOENT));
        EXPECT_EQ(key, 0u);
        EXPECT_EQ(Open(RegistryHive::CurrentUser, keyPath, key), static_cast<std::uint32_t>(ENOENT));
    }
}

TEST_F(LinuxRegistry, WithoutTheVariableTheMachineHiveIsInEtc) {
    unsetenv("VEXLANE_REGISTRY");
    RegistryHandle key = 0;
    const bool exists = std::filesystem::is_directory("/etc/vexlane/HKEY_LOCAL_MACHINE");
    EXPECT_EQ(Open(RegistryHive::LocalMachine, "", key) == 0, exists);
    platform::CloseRegistryKey(key);
}

TEST_F(LinuxRegistry, NoDescriptorStaysOpen) {
    const std::size_t before = OpenDescriptors();
    const RegistryHandle key = KeyWithValue("value", "1");
    char buffer[4] = {};
    std::uint32_t size = 0;
    platform::QueryRegistryValue(key, "value", buffer, size);
    platform::QueryRegistryValue(key, "missing", buffer, size);
    platform::QueryRegistryValue(key, "..", buffer, size);
    platform::CloseRegistryKey(key);
    EXPECT_EQ(OpenDescriptors(), before);
}

}  // namespace
