#include "tests/soak/kept_handles.h"

namespace soak {

void CountKeptHandles() {}

std::uint64_t KeptHandles() {
    return 0;
}

}  // namespace soak
