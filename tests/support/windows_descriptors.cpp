#include <windows.h>
// clang-format off: needs the one above
#include <psapi.h>
// clang-format on

#include <algorithm>
#include <cstdint>

#include "tests/support/descriptors.h"

namespace test_support {

namespace {

HANDLE AsHandle(int number) {
    return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(number));
}

}  // namespace

// Every number is tried, until so many are free that there will be none.
std::set<int> OpenDescriptors() {
    constexpr int step = 4;
    constexpr int longestGap = 1000 * step;
    std::set<int> open;
    for (int number = step, last = 0; number < last + longestGap; number += step) {
        DWORD flags = 0;
        if (GetHandleInformation(AsHandle(number), &flags) != FALSE) {
            open.insert(number);
            last = number;
        }
    }
    return open;
}

bool StayBehind(const std::set<int>& descriptors) {
    return std::all_of(descriptors.begin(), descriptors.end(), [](int descriptor) {
        DWORD flags = 0;
        return GetHandleInformation(AsHandle(descriptor), &flags) != FALSE && (flags & HANDLE_FLAG_INHERIT) == 0;
    });
}

int Mappings() {
    int count = 0;
    MEMORY_BASIC_INFORMATION region = {};
    for (const char* at = nullptr; VirtualQuery(at, &region, sizeof region) != 0; at += region.RegionSize) {
        count += region.State == MEM_COMMIT && region.Type != MEM_IMAGE ? 1 : 0;
        at = static_cast<const char*>(region.BaseAddress);
    }
    return count;
}

long ResidentKilobytes() {
    PROCESS_MEMORY_COUNTERS counters = {};
    counters.cb = sizeof counters;
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return static_cast<long>(counters.WorkingSetSize / 1024);
}

}  // namespace test_support
