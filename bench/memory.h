/// How much memory this process uses. One file per system answers.
#pragma once

#include <cstdint>
#include <optional>

namespace bench {

/// Bytes of physical memory that the process holds.
std::uint64_t ResidentBytes();

/// Bytes that the program has allocated and not given back; none where the system does not count them.
std::optional<std::uint64_t> AllocatedBytes();

}  // namespace bench
