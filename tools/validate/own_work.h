/// Marks what the host's objects allocate for their own records.
#pragma once

namespace allocation_count {

/// Makes the allocations of the calling thread succeed during its lifetime, without counting towards a failure, in a
/// program whose allocations fail on purpose. Elsewhere it has no effect.
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
