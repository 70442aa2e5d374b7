/// Stored configuration: keys in two hives, with values of raw bytes. The Windows registry; on Linux folders and files.
#pragma once

#include <cstdint>

namespace platform {

enum class RegistryHive { LocalMachine, CurrentUser };

/// An open key; 0 is none.
using RegistryHandle = std::uintptr_t;

inline constexpr std::uint32_t registryAllAccess = 0xF003F;
inline constexpr std::uint32_t registryAllAccess32BitView = 0xF023F;

// Each function returns the system's error, 0 for success, and sets the last error on failure. Paths use backslashes.
// On Linux `access` is ignored and allocation failure throws std::bad_alloc. Any thread.

/// Opens an existing key. On success the caller owns `key` and closes it with CloseRegistryKey; else it is 0.
std::uint32_t OpenRegistryKey(RegistryHive hive, const char* path, std::uint32_t access, RegistryHandle& key);

/// Opens a key and creates it, with its parents, if it is missing. Writes no value. `key` as for OpenRegistryKey.
std::uint32_t CreateRegistryKey(RegistryHive hive, const char* path, std::uint32_t access, RegistryHandle& key);

/// Copies a value's bytes, regardless of its type. `size` is the buffer's size in bytes on entry and the value's on
/// return. A null buffer only gets the size. Fails for a missing value, a value that does not fit, and an invalid key.
std::uint32_t QueryRegistryValue(RegistryHandle key, const char* name, void* buffer, std::uint32_t& size);

/// Closes a key; does nothing for 0.
void CloseRegistryKey(RegistryHandle key);

}  // namespace platform
