/// Makes this process run out of descriptors.
#pragma once

#include <sys/resource.h>
#include <unistd.h>

namespace test_support {

/// During its lifetime, this process and its children open only descriptors with numbers below the limit.
class DescriptorLimit {
  public:
    explicit DescriptorLimit(int limit) {
        ::getrlimit(RLIMIT_NOFILE, &former_);
        const rlimit lower = {static_cast<rlim_t>(limit), former_.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &lower);
    }
    ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &former_); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

    /// The limit that leaves none.
    static int None() {
        const int lowest = ::dup(0);
        ::close(lowest);
        return lowest;
    }

  private:
    rlimit former_ = {};
};

}  // namespace test_support
