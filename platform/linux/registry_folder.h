/// The location of the registry in the file system.
#pragma once

#include <string>

#include "platform/registry.h"

namespace platform {

/// Returns the folder of a key, in which each value is a file. It is below VEXLANE_REGISTRY if set; else below
/// /etc/vexlane for the machine hive, and below XDG_CONFIG_HOME/vexlane, if that is an absolute path, or
/// HOME/.config/vexlane for the user hive. Empty when the environment defines none and for an invalid path. Any thread.
std::string RegistryFolder(RegistryHive hive, const char* path);

}  // namespace platform
