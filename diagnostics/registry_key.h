/// One open registry key.
#pragma once

#include <cstdint>
#include <string>

#include "platform/registry.h"

namespace diagnostics {

/// One thread at a time.
class RegistryKey {
  public:
    /// Opens the key in the machine hive or else in the user hive; where both lack it, makes it, in the same order.
    explicit RegistryKey(const std::string& path);
    ~RegistryKey();

    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;

    bool IsOpen() const { return status_ == 0; }

    /// The value's bytes up to the first NUL, whatever its type; empty when there is no such value.
    std::string ReadString(const char* valueName) const;

  private:
    std::string path_;
    std::uint32_t status_ = 0;  // of the last attempt to open or make the key; 0 is success
    platform::RegistryHandle handle_ = 0;
};

}  // namespace diagnostics
