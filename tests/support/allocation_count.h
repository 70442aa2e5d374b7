/// Replaces operator new in the program that links it: counts allocations and makes them fail.
///
/// On Linux the program's operators also serve the shared libraries that it loads. A Windows library has its own.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tools/validate/own_work.h"

namespace allocation_count {

/// Allocations of one thread.
struct Count {
    std::uint64_t number = 0;
    std::int64_t liveBytes = 0;  ///< allocated and not freed; below 0 when more was freed
    std::size_t largest = 0;     ///< bytes of the largest block
};

/// Returns what the calling thread has allocated since the last Restart.
Count OfThisThread();
void Restart();

/// Returns what `action` allocates.
template <class Action>
Count Of(const Action& action) {
    Restart();
    action();
    return OfThisThread();
}

/// Which allocations fail.
enum class Failing : std::uint8_t { One, AllFromThenOn };

/// Makes allocations of the calling thread fail during its lifetime: operator new throws std::bad_alloc, or returns
/// null where it must not throw. One at a time. A test of every point of failure raises the number until none fails:
///
///     for (std::uint64_t number = 1;; ++number) {
///         Failure failure(number);
///         act();
///         if (!failure.End()) break;
///         check();
///     }
class Failure {
  public:
    /// The allocation with that number fails, counted from 1 and from now on.
    explicit Failure(std::uint64_t number, Failing failing = Failing::One);
    ~Failure();
    Failure(const Failure&) = delete;
    Failure& operator=(const Failure&) = delete;

    /// Makes allocations succeed again. Returns whether one has failed.
    bool End();
};

}  // namespace allocation_count
