#include "tests/support/allocation_count.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

// In front of each block stands its size, in a place that keeps the block aligned.
constexpr std::size_t headSize = 2 * sizeof(void*) > __STDCPP_DEFAULT_NEW_ALIGNMENT__
                                     ? 2 * sizeof(void*)
                                     : __STDCPP_DEFAULT_NEW_ALIGNMENT__;

constinit thread_local allocation_count::Count count;

void* Allocate(std::size_t size) noexcept {
    auto* const head = static_cast<unsigned char*>(std::malloc(headSize + size));
    if (head == nullptr) {
        return nullptr;
    }
    *reinterpret_cast<std::size_t*>(head) = size;
    ++count.number;
    count.liveBytes += static_cast<std::int64_t>(size);
    count.largest = std::max(count.largest, size);
    return head + headSize;
}

void* AllocateOrThrow(std::size_t size) {
    void* const block = Allocate(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void GiveBack(void* block) noexcept {
    if (block != nullptr) {
        unsigned char* const head = static_cast<unsigned char*>(block) - headSize;
        count.liveBytes -= static_cast<std::int64_t>(*reinterpret_cast<const std::size_t*>(head));
        std::free(head);
    }
}

}  // namespace

namespace allocation_count {

Count OfThisThread() {
    return count;
}

void Restart() {
    count = {};
}

}  // namespace allocation_count

// All of them: a sanitizer's own ones are no longer in pairs with these.
void* operator new(std::size_t size) {
    return AllocateOrThrow(size);
}
void* operator new[](std::size_t size) {
    return AllocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void operator delete(void* block) noexcept {
    GiveBack(block);
}
void operator delete[](void* block) noexcept {
    GiveBack(block);
}
void operator delete(void* block, std::size_t) noexcept {
    GiveBack(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    GiveBack(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    GiveBack(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    GiveBack(block);
}
