#include <windows.h>
// clang-format off: needs the one above
#include <psapi.h>
#include <tlhelp32.h>
// clang-format on

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>

#include "tests/support/descriptors.h"

namespace test_support {

namespace {

HANDLE AsHandle(int number) {
    return reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(number));
}

// Tries every number until so many are unused that no more are expected.
template <class Action>
void ForEachHandle(const Action& action) {
    constexpr int step = 4;
    constexpr int longestGap = 1000 * step;
    for (int number = step, last = 0; number < last + longestGap; number += step) {
        DWORD flags = 0;
        if (GetHandleInformation(AsHandle(number), &flags) != FALSE) {
            action(number);
            last = number;
        }
    }
}

}  // namespace

std::set<int> OpenDescriptors() {
    std::set<int> open;
    ForEachHandle([&](int number) { open.insert(number); });
    return open;
}

OpenCounts CountOpen() {
    OpenCounts counts;
    ForEachHandle([&](int number) {
        ++counts.all;
        counts.files += GetFileType(AsHandle(number)) == FILE_TYPE_DISK ? 1u : 0u;
    });
    return counts;
}

std::size_t ThreadCount() {
    const HANDLE list = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    std::size_t count = 0;
    for (BOOL found = Thread32First(list, &entry); found != FALSE; found = Thread32Next(list, &entry)) {
        count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1u : 0u;
    }
    CloseHandle(list);
    return count;
}

bool AreClosedInNewProcess(const std::set<int>& descriptors) {
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

namespace {

void ForEachHeap(const std::function<void(HANDLE)>& action) {
    std::array<HANDLE, 64> heaps = {};
    const DWORD count = GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
    std::for_each_n(heaps.begin(), std::min<std::size_t>(count, heaps.size()), action);
}

}  // namespace

void KeepNoFreeMemory() {}

void ReleaseFreeMemory() {
    ForEachHeap([](HANDLE heap) { HeapCompact(heap, 0); });
}

// The system maps large blocks separately, and a walk through the heap does not include them.
std::uint64_t AllocatedBytes() {
    std::uint64_t bytes = 0;
    ForEachHeap([&](HANDLE heap) {
        HeapLock(heap);
        PROCESS_HEAP_ENTRY entry = {};
        while (HeapWalk(heap, &entry) != FALSE) {
            bytes += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0 ? entry.cbData : 0;
        }
        HeapUnlock(heap);
    });
    return bytes;
}

}  // namespace test_support
