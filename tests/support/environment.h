/// The environment of this process, as the C library and child processes see it. One thread at a time.
#pragma once

#include <string>

namespace test_support {

void SetEnvironment(const char* name, const std::string& value);
void UnsetEnvironment(const char* name);

/// Makes local time follow the variable TZ from now on.
void ReadTimeZone();

/// The separator between the folders of the search path.
#ifdef _WIN32
inline constexpr char pathSeparator = ';';
#else
inline constexpr char pathSeparator = ':';
#endif

}  // namespace test_support
