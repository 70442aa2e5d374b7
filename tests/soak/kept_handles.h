/// The handles of processes that the library keeps open by its own rule.
///
/// On Windows the start of a server keeps a handle of its process and one of its thread, and every look at the
/// processes keeps one for each server that it finds. On Linux nothing is kept.
#pragma once

#include <cstdint>

namespace soak {

/// Counts what the library keeps that has just been loaded.
void CountKeptHandles();

/// How many all libraries have kept that were loaded until now.
std::uint64_t KeptHandles();

}  // namespace soak
