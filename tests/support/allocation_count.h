/// Counts what is allocated with operator new, which the program that links this has replaced.
#pragma once

#include <cstddef>
#include <cstdint>

namespace allocation_count {

/// Of one thread.
struct Count {
    std::uint64_t number = 0;
    std::int64_t liveBytes = 0;  ///< allocated and not given back; below 0 when more was given back
    std::size_t largest = 0;     ///< bytes of the largest block
};

/// What the calling thread has allocated since the last Restart.
Count OfThisThread();
void Restart();

/// What `action` allocates.
template <class Action>
Count Of(const Action& action) {
    Restart();
    action();
    return OfThisThread();
}

}  // namespace allocation_count
