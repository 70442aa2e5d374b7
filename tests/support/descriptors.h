/// The resources of this process: descriptors, threads, memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>

namespace test_support {

/// Numbers of the open descriptors; on Windows, of the open handles.
std::set<int> OpenDescriptors();

/// How many more there may be without a leak: on Windows a lock keeps a handle once a thread has waited for it.
#ifdef _WIN32
inline constexpr std::size_t keptByLocks = 16;
#else
inline constexpr std::size_t keptByLocks = 0;
#endif

/// Returns whether all of them are closed in a program that this process starts.
bool AreClosedInNewProcess(const std::set<int>& descriptors);

/// The number of open descriptors or handles, and how many of them are files. Counting allocates nothing for each.
struct OpenCounts {
    std::size_t all = 0;
    std::size_t files = 0;
};
OpenCounts CountOpen();

/// Threads that have not ended, the calling one included.
std::size_t ThreadCount();

/// The number of memory mappings, those of files included.
int Mappings();

/// Memory in use, in KiB; 0 where a sanitizer keeps freed memory.
long ResidentKilobytes();

/// Makes the allocator return freed memory to the system at once from now on, as far as it can.
void KeepNoFreeMemory();

/// Returns free memory to the system.
void ReleaseFreeMemory();

/// Bytes that the program has allocated and not freed; on Windows without large blocks. 0 where a sanitizer allocates.
std::uint64_t AllocatedBytes();

}  // namespace test_support
