#include "diagnostics/registry_key.h"

#include <algorithm>
#include <vector>

namespace diagnostics {

namespace {

constexpr std::uint32_t valueCapacity = 10240;

}  // namespace

RegistryKey::RegistryKey(const std::string& keyPath) : path(keyPath) {
    using platform::RegistryHive;
    // Opened in the view of 32-bit programs, made in the native one.
    status = platform::OpenRegistryKey(RegistryHive::LocalMachine, path.c_str(), platform::registryAllAccess32BitView,
                                       handle);
    if (!IsOpen()) {
        status = platform::OpenRegistryKey(RegistryHive::CurrentUser, path.c_str(),
                                           platform::registryAllAccess32BitView, handle);
    }
    if (!IsOpen()) {
        status =
            platform::CreateRegistryKey(RegistryHive::LocalMachine, path.c_str(), platform::registryAllAccess, handle);
    }
    if (!IsOpen()) {
        status =
            platform::CreateRegistryKey(RegistryHive::CurrentUser, path.c_str(), platform::registryAllAccess, handle);
    }
}

RegistryKey::~RegistryKey() {
    if (IsOpen()) {
        platform::CloseRegistryKey(handle);
    }
}

std::string RegistryKey::ReadString(const char* valueName) const {
    std::vector<char> buffer(valueCapacity);
    std::uint32_t size = valueCapacity;
    if (platform::QueryRegistryValue(handle, valueName, buffer.data(), size) != 0) {
        return {};
    }
    const auto end = buffer.begin() + static_cast<std::ptrdiff_t>(std::min(size, valueCapacity));
    return std::string(buffer.begin(), std::find(buffer.begin(), end, '\0'));
}

}  // namespace diagnostics
