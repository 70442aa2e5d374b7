/// An open registry key.
#pragma once

#include <cstdint>
#include <string>

#include "platform/registry.h"

namespace diagnostics {

/// Owns one registry key, which the destructor closes. One thread at a time.
class RegistryKey {
  public:
    /// Opens the key in the machine hive, else in the user hive; if neither can be opened, creates it, in the same
    /// order. Failure leaves IsOpen() false.
    explicit RegistryKey(const std::string& path);
    ~RegistryKey();

    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;

    bool IsOpen() const { return status_ == 0; }

    /// Returns the value's bytes, regardless of its type, up to the first NUL; empty when there is no such value or it
    /// has more than 10240 bytes. Throws std::bad_alloc.
    std::string ReadString(const char* valueName) const;

  private:
    std::string path_;
    std::uint32_t status_ = 0;  // of the last attempt to open or create the key; 0 is success
    platform::RegistryHandle handle_ = 0;
};

}  // namespace diagnostics
