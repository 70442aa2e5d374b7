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

GuardedBytes::GuardedBytes(std::size_t size, std::uint8_t fill) : count(size) {
    SYSTEM_INFO system = {};
    GetSystemInfo(&system);
    const std::size_t page = system.dwPageSize;
    const std::size_t usable = (size + page - 1) / page * page;
    mappedSize = usable + page;
    // The last page stays reserved: there is no memory behind it.
    mapping = VirtualAlloc(nullptr, mappedSize, MEM_RESERVE, PAGE_NOACCESS);
    if (mapping == nullptr) {
        Fail("VirtualAlloc");
    }
    if (usable != 0 && VirtualAlloc(mapping, usable, MEM_COMMIT, PAGE_READWRITE) == nullptr) {
        const DWORD error = GetLastError();
        VirtualFree(mapping, 0, MEM_RELEASE);
        SetLastError(error);
        Fail("VirtualAlloc");
    }
    bytes = static_cast<std::uint8_t*>(mapping) + usable - size;
    std::memset(bytes, fill, size);
}

GuardedBytes::GuardedBytes(const std::vector<std::uint8_t>& content) : GuardedBytes(content.size()) {
    if (!content.empty()) {
        std::memcpy(bytes, content.data(), content.size());
    }
}

void GuardedBytes::MakeReadOnly() {
    SYSTEM_INFO system = {};
    GetSystemInfo(&system);
    DWORD before = 0;
    if (mappedSize > system.dwPageSize &&
        VirtualProtect(mapping, mappedSize - system.dwPageSize, PAGE_READONLY, &before) == 0) {
        Fail("VirtualProtect");
    }
}

GuardedBytes::~GuardedBytes() {
    VirtualFree(mapping, 0, MEM_RELEASE);
}

}  // namespace test_support
