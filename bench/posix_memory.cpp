#include <malloc.h>
#include <unistd.h>

#include <fstream>

#include "bench/memory.h"

namespace bench {

std::uint64_t ResidentBytes() {
    std::uint64_t whole = 0;
    std::uint64_t resident = 0;
    std::ifstream("/proc/self/statm") >> whole >> resident;
    return resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

std::optional<std::uint64_t> AllocatedBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

}  // namespace bench
