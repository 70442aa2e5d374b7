#include "tests/support/allocation_count.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

// The size of each block is stored before it, in a header that keeps the block aligned.
constexpr std::size_t headSize = 2 * sizeof(void*) > __STDCPP_DEFAULT_NEW_ALIGNMENT__
                                     ? 2 * sizeof(void*)
                                     : __STDCPP_DEFAULT_NEW_ALIGNMENT__;

constinit thread_local allocation_count::Count count;

struct FailureState {
    std::uint64_t ahead = 0;  // allocations up to and including the one that fails; 0 when none fails
    allocation_count::Failing failing = allocation_count::Failing::One;
    bool hasHappened = false;
};

constinit thread_local FailureState failureState;

bool Fails() noexcept {
    FailureState& state = failureState;
    if (state.ahead == 0 || allocation_count::WithoutFailure::IsInForce()) {
        return false;
    }
    if (state.ahead > 1) {
        --state.ahead;
        return false;
    }
    state.hasHappened = true;
    if (state.failing == allocation_count::Failing::One) {
        state.ahead = 0;
    }
    return true;
}

void* Allocate(std::size_t size) noexcept {
    if (Fails()) {
        return nullptr;
    }
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

Failure::Failure(std::uint64_t number, Failing failing) {
    failureState.ahead = number;
    failureState.failing = failing;
    failureState.hasHappened = false;
}

Failure::~Failure() {
    End();
}

bool Failure::End() {
    failureState.ahead = 0;
    return failureState.hasHappened;
}

}  // namespace allocation_count

// All forms are replaced: a sanitizer's own operators would not match these.
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
