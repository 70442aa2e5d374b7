#include "platform/registry.h"

#include <windows.h>

#include "platform/last_error.h"

namespace platform {

namespace {

static_assert(registryAllAccess == KEY_ALL_ACCESS);
static_assert(registryAllAccess32BitView == (KEY_ALL_ACCESS | KEY_WOW64_32KEY));

HKEY ToHive(RegistryHive hive) {
    return hive == RegistryHive::LocalMachine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
}

// The registry functions return their status and do not set the last error.
std::uint32_t Report(LSTATUS status) {
    const auto error = static_cast<std::uint32_t>(status);
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
    }
    return error;
}

}  // namespace

std::uint32_t OpenRegistryKey(RegistryHive hive, const char* path, std::uint32_t access, RegistryHandle& key) {
    HKEY opened = nullptr;
    const LSTATUS status = ::RegOpenKeyExA(ToHive(hive), path, 0, access, &opened);
    key = status == ERROR_SUCCESS ? reinterpret_cast<RegistryHandle>(opened) : 0;
    return Report(status);
}

std::uint32_t CreateRegistryKey(RegistryHive hive, const char* path, std::uint32_t access, RegistryHandle& key) {
    HKEY created = nullptr;
    const LSTATUS status =
        ::RegCreateKeyExA(ToHive(hive), path, 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr, &created, nullptr);
    key = status == ERROR_SUCCESS ? reinterpret_cast<RegistryHandle>(created) : 0;
    return Report(status);
}

std::uint32_t QueryRegistryValue(RegistryHandle key, const char* name, void* buffer, std::uint32_t& size) {
    DWORD bytes = size;
    const LSTATUS status =
        ::RegQueryValueExA(reinterpret_cast<HKEY>(key), name, nullptr, nullptr, static_cast<BYTE*>(buffer), &bytes);
    size = bytes;
    return Report(status);
}

void CloseRegistryKey(RegistryHandle key) {
    if (key != 0) {
        ::RegCloseKey(reinterpret_cast<HKEY>(key));
    }
}

}  // namespace platform
