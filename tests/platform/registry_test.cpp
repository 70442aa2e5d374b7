#include "platform/registry.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/last_error.h"
#include "tests/support/scratch_registry.h"

namespace {

using platform::RegistryHandle;
using platform::RegistryHive;

constexpr char keyPath[] = "SOFTWARE\\Tellumark\\KORA\\DEBUG";
constexpr auto machine = RegistryHive::LocalMachine;
constexpr auto user = RegistryHive::CurrentUser;
constexpr std::uint32_t noSuchFile = 2;  // on every system

class Registry : public testing::Test {
  protected:
    static std::uint32_t Open(RegistryHive hive, RegistryHandle& key) {
        return platform::OpenRegistryKey(hive, keyPath, platform::registryAllAccess32BitView, key);
    }

    static std::uint32_t Create(RegistryHive hive, RegistryHandle& key) {
        return platform::CreateRegistryKey(hive, keyPath, platform::registryAllAccess, key);
    }

    RegistryHandle KeyWithValue(const std::string& name, const std::string& bytes) {
        registry.StoreBytes(machine, keyPath, name, bytes);
        RegistryHandle key = 0;
        EXPECT_EQ(Open(machine, key), 0u);
        return key;
    }

    test_support::ScratchRegistry registry;
};

TEST_F(Registry, AMissingKeyIsNotOpened) {
    RegistryHandle key = 7;
    platform::SetLastError(0);
    EXPECT_EQ(Open(machine, key), noSuchFile);
    EXPECT_EQ(platform::LastError(), noSuchFile);
    EXPECT_EQ(key, 0u);
    EXPECT_TRUE(registry.IsEmpty(machine, ""));
}

TEST_F(Registry, CreatingAKeyCreatesItsParentsAndNoValue) {
    for (const RegistryHive hive : {machine, user}) {
        RegistryHandle key = 0;
        ASSERT_EQ(Create(hive, key), 0u);
        EXPECT_NE(key, 0u);
        platform::CloseRegistryKey(key);
        EXPECT_TRUE(registry.HasKey(hive, keyPath));
        EXPECT_TRUE(registry.IsEmpty(hive, keyPath));
    }
}

TEST_F(Registry, OpenAndCreateKeepTheValuesOfAnExistingKey) {
    registry.StoreBytes(machine, keyPath, "DebugLevel", "3");
    for (const bool create : {false, true}) {
        RegistryHandle key = 0;
        ASSERT_EQ(create ? Create(machine, key) : Open(machine, key), 0u);
        char buffer[8] = {};
        std::uint32_t size = sizeof(buffer);
        EXPECT_EQ(platform::QueryRegistryValue(key, "DebugLevel", buffer, size), 0u);
        EXPECT_EQ(std::string(buffer, size), "3");
        platform::CloseRegistryKey(key);
    }
}

TEST_F(Registry, TheHivesAreSeparate) {
    registry.MakeKey(machine, keyPath);
    RegistryHandle key = 0;
    EXPECT_NE(Open(user, key), 0u);
}

TEST_F(Registry, ABlockedHiveRefusesEverything) {
    registry.Block(machine);
    RegistryHandle key = 7;
    EXPECT_NE(Open(machine, key), 0u);
    EXPECT_EQ(key, 0u);
    key = 7;
    platform::SetLastError(0);
    const std::uint32_t status = Create(machine, key);
    EXPECT_NE(status, 0u);
    EXPECT_EQ(platform::LastError(), status);
    EXPECT_EQ(key, 0u);
}

TEST_F(Registry, AValueIsReturnedUnchanged) {
    const std::string bytes("a\0b\n\xFF", 5);
    const RegistryHandle key = KeyWithValue("value", bytes);
    char buffer[5] = {};
    std::uint32_t size = sizeof(buffer);
    EXPECT_EQ(platform::QueryRegistryValue(key, "value", buffer, size), 0u);
    EXPECT_EQ(std::string(buffer, size), bytes);
    platform::CloseRegistryKey(key);
}

TEST_F(Registry, TextsAndNumbersAreReturnedAsBytes) {
    registry.StoreText(machine, keyPath, "text", "17");
    registry.StoreNumber(machine, keyPath, "number", 0x01020304);
    RegistryHandle key = 0;
    ASSERT_EQ(Open(machine, key), 0u);
    char buffer[16] = {};
    std::uint32_t size = sizeof(buffer);
    EXPECT_EQ(platform::QueryRegistryValue(key, "text", buffer, size), 0u);
    EXPECT_EQ(std::string(buffer, size), "17");
    size = sizeof(buffer);
    EXPECT_EQ(platform::QueryRegistryValue(key, "number", buffer, size), 0u);
    EXPECT_EQ(std::string(buffer, size), "\x04\x03\x02\x01");
    platform::CloseRegistryKey(key);
}

TEST_F(Registry, AnEmptyValueIsReadSuccessfully) {
    const RegistryHandle key = KeyWithValue("value", "");
    char buffer[5] = {};
    std::uint32_t size = sizeof(buffer);
    EXPECT_EQ(platform::QueryRegistryValue(key, "value", buffer, size), 0u);
    EXPECT_EQ(size, 0u);
    platform::CloseRegistryKey(key);
}

TEST_F(Registry, AValueLongerThanTheBufferIsAFailure) {
    for (const std::size_t length : {10239u, 10240u, 10241u, 100000u}) {
        const RegistryHandle key = KeyWithValue("value", std::string(length, 'v'));
        std::vector<char> buffer(10241, '#');
        std::uint32_t size = 10240;
        platform::SetLastError(0);
        const std::uint32_t status = platform::QueryRegistryValue(key, "value", buffer.data(), size);
        EXPECT_EQ(status != 0, length > 10240) << length;
        EXPECT_EQ(platform::LastError(), status);
        EXPECT_EQ(size, length);
        EXPECT_EQ(std::string(buffer.data(), length <= 10240 ? length : 0),
                  std::string(length <= 10240 ? length : 0, 'v'));
        EXPECT_EQ(buffer.back(), '#');
        platform::CloseRegistryKey(key);
    }
}

TEST_F(Registry, WithoutABufferTheSizeIsReturned) {
    const RegistryHandle key = KeyWithValue("value", "twelve bytes");
    std::uint32_t size = 0;
    EXPECT_EQ(platform::QueryRegistryValue(key, "value", nullptr, size), 0u);
    EXPECT_EQ(size, 12u);
    platform::CloseRegistryKey(key);
}

TEST_F(Registry, AMissingValueAndAnInvalidKeyAreFailures) {
    const RegistryHandle key = KeyWithValue("value", "1");
    char buffer[4] = {};
    std::uint32_t size = sizeof(buffer);
    platform::SetLastError(0);
    EXPECT_EQ(platform::QueryRegistryValue(key, "DebugLevel", buffer, size), noSuchFile);
    EXPECT_EQ(platform::LastError(), noSuchFile);
    size = sizeof(buffer);
    const std::uint32_t status = platform::QueryRegistryValue(0, "value", buffer, size);
    EXPECT_NE(status, 0u);
    EXPECT_NE(status, noSuchFile);
    EXPECT_EQ(platform::LastError(), status);
    platform::CloseRegistryKey(key);
}

TEST_F(Registry, ClosingNoKeyDoesNothing) {
    platform::CloseRegistryKey(0);
}

TEST_F(Registry, ManyThreadsCanCreateTheSameKey) {
    std::vector<std::thread> threads;
    std::vector<std::uint32_t> statuses(8, 1);
    for (std::uint32_t& status : statuses) {
        threads.emplace_back([&status] {
            RegistryHandle key = 0;
            status = Create(machine, key);
            platform::CloseRegistryKey(key);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(statuses, std::vector<std::uint32_t>(8, 0));
}

}  // namespace
