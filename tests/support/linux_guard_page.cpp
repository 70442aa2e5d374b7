#include "tests/support/guard_page.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace test_support {

GuardedBytes::GuardedBytes(std::size_t size, std::uint8_t fill) : count_(size) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t usable = (size + page - 1) / page * page;
    mappedSize_ = usable + page;
    mapping_ = mmap(nullptr, mappedSize_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping_ == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "mmap");
    }
    auto* const start = static_cast<std::uint8_t*>(mapping_);
    if (mprotect(start + usable, page, PROT_NONE) != 0) {
        const int error = errno;
        munmap(mapping_, mappedSize_);
        throw std::system_error(error, std::generic_category(), "mprotect");
    }
    bytes_ = start + usable - size;
    std::memset(bytes_, fill, size);
}

GuardedBytes::GuardedBytes(const std::vector<std::uint8_t>& content) : GuardedBytes(content.size()) {
    if (!content.empty()) {
        std::memcpy(bytes_, content.data(), content.size());
    }
}

void GuardedBytes::MakeReadOnly() {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    if (mappedSize_ > page && mprotect(mapping_, mappedSize_ - page, PROT_READ) != 0) {
        throw std::system_error(errno, std::generic_category(), "mprotect");
    }
}

GuardedBytes::~GuardedBytes() {
    munmap(mapping_, mappedSize_);
}

}  // namespace test_support
