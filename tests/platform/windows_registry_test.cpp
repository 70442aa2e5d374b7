#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "platform/last_error.h"
#include "platform/registry.h"
#include "tests/support/scratch_registry.h"

namespace {

using platform::RegistryHandle;

constexpr auto machine = platform::RegistryHive::LocalMachine;

class WindowsRegistry : public testing::Test {
  protected:
    RegistryHandle Created(const char* path) const {
        RegistryHandle key = 0;
        EXPECT_EQ(platform::CreateRegistryKey(machine, path, platform::registryAllAccess, key), 0u);
        return key;
    }

    test_support::ScratchRegistry registry;
};

TEST_F(WindowsRegistry, FailuresReturnTheSystemsError) {
    registry.StoreBytes(machine, "key", "value", std::string(100, 'v'));
    const RegistryHandle key = Created("key");
    char buffer[10] = {};
    std::uint32_t size = sizeof(buffer);
    EXPECT_EQ(platform::QueryRegistryValue(key, "value", buffer, size), std::uint32_t{ERROR_MORE_DATA});
    EXPECT_EQ(platform::LastError(), std::uint32_t{ERROR_MORE_DATA});
    EXPECT_EQ(platform::QueryRegistryValue(0, "value", buffer, size), std::uint32_t{ERROR_INVALID_HANDLE});
    EXPECT_EQ(platform::LastError(), std::uint32_t{ERROR_INVALID_HANDLE});
    platform::CloseRegistryKey(key);
}

TEST_F(WindowsRegistry, AHandleIsTheSystemsWithAllRights) {
    const RegistryHandle key = Created("key");
    const HKEY system = reinterpret_cast<HKEY>(key);
    EXPECT_EQ(RegSetValueExA(system, "value", 0, REG_SZ, reinterpret_cast<const BYTE*>("1"), 2), ERROR_SUCCESS);
    EXPECT_EQ(RegDeleteValueA(system, "value"), ERROR_SUCCESS);
    platform::CloseRegistryKey(key);
    EXPECT_EQ(RegSetValueExA(system, "value", 0, REG_SZ, reinterpret_cast<const BYTE*>("1"), 2), ERROR_INVALID_HANDLE);
}

// A volatile key could not have a non-volatile subkey.
TEST_F(WindowsRegistry, ACreatedKeyIsNotVolatile) {
    const RegistryHandle key = Created("key");
    HKEY child = nullptr;
    EXPECT_EQ(RegCreateKeyExA(reinterpret_cast<HKEY>(key), "child", 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_READ,
                              nullptr, &child, nullptr),
              ERROR_SUCCESS);
    RegCloseKey(child);
    platform::CloseRegistryKey(key);
}

}  // namespace
