#include <windows.h>

#include <cstring>
#include <system_error>

#include "tests/support/guard_page.h"

namespace test_support {

namespace {

[[noreturn]] void Fail(const char* function) {
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), function);
}

}  // namespace

GuardedBytes::GuardedBytes(std::size_t size, std::uint8_t fill) : count_(size) {
    SYSTEM_INFO system = {};
    GetSystemInfo(&system);
    const std::size_t page = system.dwPageSize;
    const std::size_t usable = (size + page - 1) / page * page;
    mappedSize_ = usable + page;
    // The last page stays reserved and inaccessible.
    mapping_ = VirtualAlloc(nullptr, mappedSize_, MEM_RESERVE, PAGE_NOACCESS);
    if (mapping_ == nullptr) {
        Fail("VirtualAlloc");
    }
    if (usable != 0 && VirtualAlloc(mapping_, usable, MEM_COMMIT, PAGE_READWRITE) == nullptr) {
        const DWORD error = GetLastError();
        VirtualFree(mapping_, 0, MEM_RELEASE);
        SetLastError(error);
        Fail("VirtualAlloc");
    }
    bytes_ = static_cast<std::uint8_t*>(mapping_) + usable - size;
    std::memset(bytes_, fill, size);
}

GuardedBytes::GuardedBytes(const std::vector<std::uint8_t>& content) : GuardedBytes(content.size()) {
    if (!content.empty()) {
        std::memcpy(bytes_, content.data(), content.size());
    }
}

void GuardedBytes::MakeReadOnly() {
    SYSTEM_INFO system = {};
    GetSystemInfo(&system);
    DWORD before = 0;
    if (mappedSize_ > system.dwPageSize &&
        VirtualProtect(mapping_, mappedSize_ - system.dwPageSize, PAGE_READONLY, &before) == 0) {
        Fail("VirtualProtect");
    }
}

GuardedBytes::~GuardedBytes() {
    VirtualFree(mapping_, 0, MEM_RELEASE);
}

}  // namespace test_support
