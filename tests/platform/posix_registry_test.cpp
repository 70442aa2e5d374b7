#include <dirent.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

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

class PosixRegistry : public testing::Test {
  protected:
    PosixRegistry() {
        char name[] = "/tmp/vexlane-registry-XXXXXX";
        root = mkdtemp(name);
        setenv("VEXLANE_REGISTRY", (root / "registry").c_str(), 1);
    }
    ~PosixRegistry() override { std::filesystem::remove_all(root); }

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

TEST_F(PosixRegistry, AMissingKeyIsNotOpened) {
    RegistryHandle key = 7;
    platform::SetLastError(0);
    EXPECT_EQ(Open(RegistryHive::LocalMachine, keyPath, key), static_cast<std::uint32_t>(ENOENT));
    EXPECT_EQ(platform::LastError(), static_cast<std::uint32_t>(ENOENT));
    EXPECT_EQ(key, 0u);
    EXPECT_FALSE(std::filesystem::exists(root / "registry"));
}

TEST_F(PosixRegistry, CreatingAKeyMakesItsFoldersAndNoValue) {
    RegistryHandle key = 0;
    ASSERT_EQ(platform::CreateRegistryKey(RegistryHive::LocalMachine, keyPath, access, key), 0u);
    EXPECT_NE(key, 0u);
    platform::CloseRegistryKey(key);
    EXPECT_TRUE(std::filesystem::is_directory(MachineFolder()));
    EXPECT_TRUE(std::filesystem::is_empty(MachineFolder()));

    ASSERT_EQ(platform::CreateRegistryKey(RegistryHive::CurrentUser, keyPath, access, key), 0u);
    platform::CloseRegistryKey(key);
    EXPECT_TRUE(std::filesystem::is_directory(root / "registry/HKEY_CURRENT_USER/SOFTWARE/Tellumark/KORA/DEBUG"));
}

TEST_F(PosixRegistry, AKeyThatExistsIsOpenedAndCreatedAgainWithItsValues) {
    platform::CloseRegistryKey(KeyWithValue("DebugLevel", "3"));
    for (const bool create : {false, true}) {
        RegistryHandle key = 0;
        ASSERT_EQ(create ? platform::CreateRegistryKey(RegistryHive::LocalMachine, keyPath, access, key)
                         : Open(RegistryHive::LocalMachine, keyPath, key),
                  0u);
        char buffer[8] = {};
        std::uint32_t size = sizeof(buffer);
        EXPECT_EQ(platform::QueryRegistryValue(key, "DebugLevel", buffer, size), 0u);
        EXPECT_EQ(std::string(buffer, size), "3");
        platform::CloseRegistryKey(key);
    }
}

TEST_F(PosixRegistry, TheHivesAreApart) {
    platform::CloseRegistryKey(KeyWithValue("DebugLevel", "3"));
    RegistryHandle key = 0;
    EXPECT_NE(Open(RegistryHive::CurrentUser, keyPath, key), 0u);
}

TEST_F(PosixRegistry, TheVariableIsReadAtEachCall) {
    platform::CloseRegistryKey(KeyWithValue("DebugLevel", "3"));
    setenv("VEXLANE_REGISTRY", (root / "other").c_str(), 1);
    RegistryHandle key = 0;
    EXPECT_NE(Open(RegistryHive::LocalMachine, keyPath, key), 0u);
}

TEST_F(PosixRegistry, AValueIsItsBytes) {
    const std::string bytes("a\0b\n\xFF", 5);
    const RegistryHandle key = KeyWithValue("value", bytes);
    char buffer[5] = {};
    std::uint32_t size = sizeof(buffer);
    EXPECT_EQ(platform::QueryRegistryValue(key, "value", buffer, size), 0u);
    EXPECT_EQ(std::string(buffer, size), bytes);
    platform::CloseRegistryKey(key);
}

TEST_F(PosixRegistry, AnEmptyValueIsASuccessOfNoBytes) {
    const RegistryHandle key = KeyWithValue("value", "");
    char buffer[5] = {};
    std::uint32_t size = sizeof(buffer);
    EXPECT_EQ(platform::QueryRegistryValue(key, "value", buffer, size), 0u);
    EXPECT_EQ(size, 0u);
    platform::CloseRegistryKey(key);
}

TEST_F(PosixRegistry, AValueAsLongAsTheBufferFitsAndALongerOneIsAFailure) {
    for (const std::size_t length : {10239u, 10240u, 10241u, 100000u}) {
        const RegistryHandle key = KeyWithValue("value", std::string(length, 'v'));
        std::vector<char> buffer(10241, '#');
        std::uint32_t size = 10240;
        const std::uint32_t status = platform::QueryRegistryValue(key, "value", buffer.data(), size);
        EXPECT_EQ(status, length <= 10240 ? 0u : static_cast<std::uint32_t>(ERANGE));
        EXPECT_EQ(size, length);
        EXPECT_EQ(std::string(buffer.data(), length <= 10240 ? length : 0),
                  std::string(length <= 10240 ? length : 0, 'v'));
        EXPECT_EQ(buffer.back(), '#');
        platform::CloseRegistryKey(key);
    }
}

TEST_F(PosixRegistry, WithoutABufferTheSizeIsAnswered) {
    const RegistryHandle key = KeyWithValue("value", "twelve bytes");
    std::uint32_t size = 0;
    EXPECT_EQ(platform::QueryRegistryValue(key, "value", nullptr, size), 0u);
    EXPECT_EQ(size, 12u);
    platform::CloseRegistryKey(key);
}

TEST_F(PosixRegistry, AMissingValueAndAnInvalidKeyAreFailures) {
    const RegistryHandle key = KeyWithValue("value", "1");
    char buffer[4] = {};
    std::uint32_t size = sizeof(buffer);
    platform::SetLastError(0);
    EXPECT_EQ(platform::QueryRegistryValue(key, "DebugLevel", buffer, size), static_cast<std::uint32_t>(ENOENT));
    EXPECT_EQ(platform::LastError(), static_cast<std::uint32_t>(ENOENT));
    EXPECT_EQ(platform::QueryRegistryValue(0, "value", buffer, size), static_cast<std::uint32_t>(EBADF));
    EXPECT_EQ(platform::LastError(), static_cast<std::uint32_t>(EBADF));
    EXPECT_EQ(size, sizeof(buffer));
    platform::CloseRegistryKey(key);
}

TEST_F(PosixRegistry, WhatIsNoFileIsNoValue) {
    const RegistryHandle key = KeyWithValue("value", "1");
    std::filesystem::create_directory(MachineFolder() / "folder");
    ASSERT_EQ(mkfifo((MachineFolder() / "pipe").c_str(), 0600), 0);
    char buffer[4] = {};
    std::uint32_t size = sizeof(buffer);
    EXPECT_NE(platform::QueryRegistryValue(key, "folder", buffer, size), 0u);
    EXPECT_NE(platform::QueryRegistryValue(key, "pipe", buffer, size), 0u);  // and nobody waits for a writer
    EXPECT_NE(platform::QueryRegistryValue(key, "", buffer, size), 0u);
    EXPECT_NE(platform::QueryRegistryValue(key, nullptr, buffer, size), 0u);
    platform::CloseRegistryKey(key);
}

TEST_F(PosixRegistry, NamesDoNotLeadOutOfTheirFolder) {
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

TEST_F(PosixRegistry, AHiveThatIsAFileRefusesEverything) {
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

TEST_F(PosixRegistry, AKeyThatIsAFileIsNoKey) {
    platform::CloseRegistryKey(KeyWithValue("value", "1"));
    RegistryHandle key = 0;
    const std::string path = std::string(keyPath) + "\\value";
    EXPECT_EQ(Open(RegistryHive::LocalMachine, path.c_str(), key), static_cast<std::uint32_t>(ENOTDIR));
    EXPECT_EQ(platform::CreateRegistryKey(RegistryHive::LocalMachine, path.c_str(), access, key),
              static_cast<std::uint32_t>(ENOTDIR));
}

TEST_F(PosixRegistry, WithoutTheVariableTheUserHiveStandsInTheConfigurationFolder) {
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

TEST_F(PosixRegistry, WithoutAnyVariableTheUserHiveFails) {
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

TEST_F(PosixRegistry, WithoutTheVariableTheMachineHiveIsTheSystems) {
    unsetenv("VEXLANE_REGISTRY");
    RegistryHandle key = 0;
    const bool exists = std::filesystem::is_directory("/etc/vexlane/HKEY_LOCAL_MACHINE");
    EXPECT_EQ(Open(RegistryHive::LocalMachine, "", key) == 0, exists);
    platform::CloseRegistryKey(key);
}

TEST_F(PosixRegistry, ClosingNoKeyDoesNothing) {
    platform::CloseRegistryKey(0);
}

TEST_F(PosixRegistry, NoDescriptorStaysOpen) {
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

TEST_F(PosixRegistry, ManyThreadsMayCreateTheSameKey) {
    std::vector<std::thread> threads;
    std::vector<std::uint32_t> statuses(8, 1);
    for (std::uint32_t& status : statuses) {
        threads.emplace_back([&status] {
            RegistryHandle key = 0;
            status = platform::CreateRegistryKey(RegistryHive::LocalMachine, keyPath, access, key);
            platform::CloseRegistryKey(key);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(statuses, std::vector<std::uint32_t>(8, 0));
}

}  // namespace
