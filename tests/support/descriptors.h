/// What this process holds: descriptors, threads, memory.
#pragma once

#include <cstddef>
#include <cstdint>
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

/// How many descriptors or handles are open, and how many of them are files. Allocates nothing for each.
struct OpenCounts {
    std::size_t all = 0;
    std::size_t files = 0;
};
OpenCounts CountOpen();

/// Threads that have not ended, the calling one included.
std::size_t ThreadCount();

/// Files and memory that are mapped, in pieces.
int Mappings();

/// Memory in use, in KiB; 0 where a sanitizer keeps what was given back.
long ResidentKilobytes();

/// Makes the allocator return freed memory to the system at once from now on, as far as it can, in place of keeping
/// some of it for later.
void KeepNoFreeMemory();

/// Returns to the system what is free now.
void ReleaseFreeMemory();

/// Bytes that the program has allocated and not freed; on Windows without large blocks. 0 where a sanitizer allocates.
std::uint64_t AllocatedBytes();

}  // namespace test_support
