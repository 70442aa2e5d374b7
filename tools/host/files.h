/// Files and folders that a command writes.
#pragma once

#include <string>

namespace plate_host {

/// Creates a folder for what `purpose` names, if it does not exist. Throws Failure.
void CreateFolder(const std::string& folder, const std::string& purpose);

/// Throws Failure if both are the same file, which writing `output` would destroy. Either may be empty or missing.
void RequireOtherFile(const std::string& output, const std::string& input);

}  // namespace plate_host
