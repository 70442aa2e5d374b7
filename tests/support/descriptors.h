/// What this process holds open.
#pragma once

#include <cstddef>
#include <set>

namespace test_support {

/// Numbers of the open descriptors; on Windows, of the open handles.
std::set<int> OpenDescriptors();

/// How many more there may be without a leak: on Windows a lock keeps a handle once somebody has had to wait for it.
#ifdef _WIN32
inline constexpr std::size_t keptByLocks = 16;
#else
inline constexpr std::size_t keptByLocks = 0;
#endif

/// Whether every one of them is closed in a program that this process starts.
bool StayBehind(const std::set<int>& descriptors);

/// Files and memory that are mapped, in pieces.
int Mappings();

/// Memory in use, in KiB; 0 where a sanitizer keeps what was given back.
long ResidentKilobytes();

}  // namespace test_support
