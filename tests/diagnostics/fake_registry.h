/// A registry inside the test program, in place of the system's. It defines all of platform/registry.h.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/registry.h"

namespace fake_registry {

/// No keys, everything may be made, nothing has been asked for.
void Reset();

/// A key that exists.
void AddKey(platform::RegistryHive hive, const std::string& path);

/// The bytes of a value of every key of that hive.
void SetValue(platform::RegistryHive hive, const std::string& name, const std::string& bytes);

/// Opening and making keys of that hive fails with that status.
void Block(platform::RegistryHive hive, std::uint32_t status);

/// What was asked for, in order: "open HIVE PATH ACCESS", "create HIVE PATH ACCESS", "query HIVE NAME SIZE", "close
/// HIVE"; HIVE is "machine", "user" or, for an invalid key, "none", ACCESS hexadecimal.
std::vector<std::string> Journal();

}  // namespace fake_registry
