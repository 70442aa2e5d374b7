#include "tests/support/guard_page.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace test_support {

GuardedBytes::GuardedBytes(std::size_t size, std::uint8_t fill) : count(size) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t usable = (size + page - 1) / page * page;
    mappedSize = usable + page;
    mapping = mmap(nullptr, mappedSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "mmap");
    }
    auto* const start = static_cast<std::uint8_t*>(mapping);
    if (mprotect(start + usable, page, PROT_NONE) != 0) {
        const int error = errno;
        munmap(mapping, mappedSize);
        throw std::system_error(error, std::generic_category(), "mprotect");
    }
    bytes = start + usable - size;
    std::memset(bytes, fill, size);
}

GuardedBytes::GuardedBytes(const std::vector<std::uint8_t>& content) : GuardedBytes(content.size()) {
    if (!content.empty()) {
        std::memcpy(bytes, content.data(), content.size());
    }
}

void GuardedBytes::MakeReadOnly() {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    if (mappedSize > page && mprotect(mapping, mappedSize - page, PROT_READ) != 0) {
        throw std::system_error(errno, std::generic_category(), "mprotect");
    }
}

GuardedBytes::~GuardedBytes() {
    munmap(mapping, mappedSize);
}

}  // namespace test_support
