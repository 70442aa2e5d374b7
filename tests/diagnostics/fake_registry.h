/// A registry inside the test program, which replaces the system's. It defines all of platform/registry.h.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/registry.h"

namespace fake_registry {

/// Removes all keys and failures, and clears the journal.
void Reset();

/// Adds an existing key.
void AddKey(platform::RegistryHive hive, const std::string& path);

/// Sets the bytes of a value in every key of that hive.
void SetValue(platform::RegistryHive hive, const std::string& name, const std::string& bytes);

/// Makes opening and creating keys of that hive fail with that status.
void Block(platform::RegistryHive hive, std::uint32_t status);

/// The operations that were called, in order: "open HIVE PATH ACCESS", "create HIVE PATH ACCESS", "query HIVE NAME
/// SIZE", "close HIVE"; HIVE is "machine", "user" or, for an invalid key, "none", ACCESS hexadecimal.
std::vector<std::string> Journal();

}  // namespace fake_registry
