/// Counts what is allocated with operator new, which the program that links this has replaced, and makes it fail.
///
/// On Linux the program's operators also serve the shared libraries that it loads. A Windows library has its own.
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

/// Which allocations fail.
enum class Failing : std::uint8_t { One, AllFromThere };

/// Makes allocations of the calling thread fail while it lives: operator new throws std::bad_alloc, or returns null
/// where it must not throw. One at a time. A test of every point of failure raises the number until none happens:
///
///     for (std::uint64_t number = 1;; ++number) {
///         Failure failure(number);
///         act();
///         if (!failure.End()) break;
///         check();
///     }
class Failure {
  public:
    /// The allocation of that number fails, counted from 1 and from now on.
    explicit Failure(std::uint64_t number, Failing failing = Failing::One);
    ~Failure();
    Failure(const Failure&) = delete;
    Failure& operator=(const Failure&) = delete;

    /// Lets allocations succeed again. Returns whether one has failed.
    bool End();
};

/// Lets the allocations of the calling thread succeed, uncounted by a failure, while it lives: the stand-ins for host,
/// engine and system do their own work so. Any program may use it.
class WithoutFailure {
  public:
    WithoutFailure() { ++nesting; }
    ~WithoutFailure() { --nesting; }
    WithoutFailure(const WithoutFailure&) = delete;
    WithoutFailure& operator=(const WithoutFailure&) = delete;

    static bool IsInForce() { return nesting != 0; }

  private:
    static inline constinit thread_local int nesting = 0;
};

}  // namespace allocation_count
