/// What the tests of processes ask each system for themselves.
#pragma once

#include <cstdint>
#include <filesystem>

namespace process_tests {

/// The program that they start, in one of the parts "sleep", "exit" and "report FILE".
#ifdef _WIN32
inline constexpr const char* helperName = "process-helper.exe";
#else
inline constexpr const char* helperName = "process-helper";
#endif

/// The folder of the running program.
std::filesystem::path OwnFolder();

std::uint32_t OwnProcessId();

/// Ends a process as anybody might, without waiting for it.
void KillFromOutside(std::uint32_t process);

}  // namespace process_tests
