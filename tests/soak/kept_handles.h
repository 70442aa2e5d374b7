/// The handles and the memory that the library keeps by design.
///
/// On Windows, starting a server keeps a handle of its process and one of its thread, and every process scan keeps one
/// for each server that it finds. Each load of the DLL keeps some handles of the C++ runtime that it contains: the
/// loading thread's event and handle, and the semaphores of a lock that is created at the first exception. Linux keeps
/// nothing.
#pragma once

#include <cstdint>

namespace soak {

/// Starts counting the handles that the newly loaded library keeps.
void CountKeptHandles();

#ifdef _WIN32
inline constexpr std::uint64_t maxRuntimeHandles = 8;
inline constexpr std::uint64_t maxRuntimeBytes = 4096;
#else
inline constexpr std::uint64_t maxRuntimeHandles = 0;
inline constexpr std::uint64_t maxRuntimeBytes = 0;
#endif

/// Adds the handles that remain of an unloaded library, at most maxRuntimeHandles.
void AddRuntimeHandles(std::uint64_t count);

/// Returns the number of handles that all loads of the library have kept so far.
std::uint64_t KeptHandles();

/// Returns the number of bytes that all unloaded instances of the library may have kept so far.
std::uint64_t KeptBytes();

}  // namespace soak
