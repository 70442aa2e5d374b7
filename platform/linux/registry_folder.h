/// Where the registry lies in the file system.
#pragma once

#include <string>

#include "platform/registry.h"

namespace platform {

/// The folder of a key, in which each value is a file: below VEXLANE_REGISTRY; without it below /etc/vexlane for the
/// machine's hive, and below XDG_CONFIG_HOME/vexlane for the user's, if that is an absolute path, else
/// HOME/.config/vexlane. Empty when the environment names none and for a path that is no key's. Any thread.
std::string RegistryFolder(RegistryHive hive, const char* path);

}  // namespace platform
