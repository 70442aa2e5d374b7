/// The handles that the library keeps open by its own rule.
///
/// On Windows the start of a server keeps a handle of its process and one of its thread, and every look at the
/// processes keeps one for each server that it finds. Each load of the DLL keeps some of the C++ runtime that is part
/// of it: the loading thread's own event and handle, and the semaphores of a lock that is made when the first exception
/// is thrown. On Linux nothing is kept.
#pragma once

#include <cstdint>

namespace soak {

/// Counts what the library keeps that has just been loaded.
void CountKeptHandles();

#ifdef _WIN32
inline constexpr std::uint64_t mostHandlesOfTheRuntime = 8;
#else
inline constexpr std::uint64_t mostHandlesOfTheRuntime = 0;
#endif

/// Counts what is left of a library that has been unloaded, at most mostHandlesOfTheRuntime.
void KeepHandlesOfTheRuntime(std::uint64_t count);

/// How many all libraries have kept that were loaded until now.
std::uint64_t KeptHandles();

}  // namespace soak
