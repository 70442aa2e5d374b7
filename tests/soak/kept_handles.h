/// The handles and the memory that the library keeps by its own rule.
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
inline constexpr std::uint64_t mostBytesOfTheRuntime = 4096;
#else
inline constexpr std::uint64_t mostHandlesOfTheRuntime = 0;
inline constexpr std::uint64_t mostBytesOfTheRuntime = 0;
#endif

/// Counts the handles that are left of a library that has been unloaded, at most mostHandlesOfTheRuntime.
void KeepHandlesOfTheRuntime(std::uint64_t count);

/// How many all libraries have kept that were loaded until now.
std::uint64_t KeptHandles();

/// What all libraries may have kept that were unloaded until now.
std::uint64_t KeptBytes();

}  // namespace soak
