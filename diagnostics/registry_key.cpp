#include "diagnostics/registry_key.h"

#include <algorithm>
#include <vector>

namespace diagnostics {

namespace {

constexpr std::uint32_t valueCapacity = 10240;

}  // namespace

RegistryKey::RegistryKey(const std::string& path) : path_(path) {
    using platform::RegistryHive;
    // Opened in the 32-bit view of the registry but created in the native one.
    status_ = platform::OpenRegistryKey(RegistryHive::LocalMachine, path_.c_str(), platform::registryAllAccess32BitView,
                                        handle_);
    if (!IsOpen()) {
        status_ = platform::OpenRegistryKey(RegistryHive::CurrentUser, path_.c_str(),
                                            platform::registryAllAccess32BitView, handle_);
    }
    if (!IsOpen()) {
        status_ = platform::CreateRegistryKey(RegistryHive::LocalMachine, path_.c_str(), platform::registryAllAccess,
                                              handle_);
    }
    if (!IsOpen()) {
        status_ =
            platform::CreateRegistryKey(RegistryHive::CurrentUser, path_.c_str(), platform::registryAllAccess, handle_);
    }
}

RegistryKey::~RegistryKey() {
    if (IsOpen()) {
        platform::CloseRegistryKey(handle_);
    }
}

std::string RegistryKey::ReadString(const char* valueName) const {
    std::vector<char> buffer(valueCapacity);
    std::uint32_t size = valueCapacity;
    if (platform::QueryRegistryValue(handle_, valueName, buffer.data(), size) != 0) {
        return {};
    }
    const auto end = buffer.begin() + static_cast<std::ptrdiff_t>(std::min(size, valueCapacity));
    return std::string(buffer.begin(), std::find(buffer.begin(), end, '\0'));
}

}  // namespace diagnostics
