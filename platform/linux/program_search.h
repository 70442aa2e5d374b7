/// The search for the programs that StartProcess starts.
#pragma once

#include <string>

namespace platform {

/// Gets the path of the program that StartProcess starts for a name. Returns 0 or the error. Any thread.
int FindProgram(const std::string& name, std::string& path);

}  // namespace platform
