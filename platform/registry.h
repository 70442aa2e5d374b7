/// Stored configuration: keys in two hives, values of raw bytes.
#pragma once

#include <cstdint>

namespace platform {

enum class RegistryHive { LocalMachine, CurrentUser };

/// A value; 0 is no key.
using RegistryHandle = std::uintptr_t;

inline constexpr std::uint32_t registryAllAccess = 0xF003F;
inline constexpr std::uint32_t registryAllAccess32BitView = 0xF023F;

/// Each returns the system's status, 0 for success. Paths use backslashes. Any thread.

/// Opens an existing key. On success `key` is the caller's and ends with CloseRegistryKey.
std::uint32_t OpenRegistryKey(RegistryHive hive, const char* path, std::uint32_t access, RegistryHandle& key);

/// Opens a key, made with its parents when it is missing; no value is written into it.
std::uint32_t CreateRegistryKey(RegistryHive hive, const char* path, std::uint32_t access, RegistryHandle& key);

/// Copies a value's bytes, whatever its type. `size` is the buffer's size going in and the value's coming out. A value
/// that does not fit, a missing one and an invalid key are failures.
std::uint32_t QueryRegistryValue(RegistryHandle key, const char* name, void* buffer, std::uint32_t& size);

void CloseRegistryKey(RegistryHandle key);

}  // namespace platform
