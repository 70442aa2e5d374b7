#include <windows.h>
// What needs the one above.
#include <psapi.h>

#include "bench/memory.h"

namespace bench {

std::uint64_t ResidentBytes() {
    PROCESS_MEMORY_COUNTERS counters = {};
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return counters.WorkingSetSize;
}

std::optional<std::uint64_t> AllocatedBytes() {
    return std::nullopt;
}

}  // namespace bench
