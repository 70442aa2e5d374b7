/// The destructor slot: it destroys the object, frees it when the flag is set, and returns the object's address.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <new>

#include "sdk/contract.h"
#include "sdk/events.h"
#include "tests/sdk/slot_list.h"

namespace {

void* watched = nullptr;
int watchedFrees = 0;

void Free(void* memory) {
    if (memory != nullptr && memory == watched) {
        ++watchedFrees;
    }
    std::free(memory);
}

}  // namespace

// Replaced, so that a test can check whether an object's memory was freed.
void* operator new(std::size_t size) {
    if (void* const memory = std::malloc(size != 0 ? size : 1)) {
        return memory;
    }
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    Free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    Free(memory);
}

namespace {

int ended = 0;

struct Target final : OKM8::Analytics::ITargetAdjuster, OKM8::IBinaryAdjuster {
    ~Target() { ended += content; }
    OKM8_OBJECT_DESTRUCTOR_SLOT(Target)
    void* QueryContract(const char*) override { return nullptr; }
    void* QueryContract(const char*) const override { return nullptr; }
    void SetStringValue(const char*, const char*) override {}
    void SetDoubleValue(const char*, double) override {}
    void SetIntValue(const char*, int32_t) override {}
    void SetBoolValue(const char*, bool) override {}
    void SetBinaryValue(const char*, const void*, uint32_t) override {}

    int content = 1;
};

class DestructorSlot : public testing::Test {
  protected:
    DestructorSlot() {
        ended = 0;
        watchedFrees = 0;
    }
    ~DestructorSlot() override { watched = nullptr; }

    const std::size_t slot = sdk_test::Slot("OKM8::IContract", "destructor");
};

TEST_F(DestructorSlot, WithoutTheFlagDestroysTheObjectAndKeepsItsMemory) {
    alignas(Target) unsigned char memory[sizeof(Target)];
    auto* const object = new (memory) Target;
    EXPECT_EQ((sdk_test::CallEntry<void*, unsigned>(object, slot, 0u)), object);
    EXPECT_EQ(ended, 1);

    // The same for a heap object, whose memory the caller then frees.
    auto* const other = new Target;
    watched = other;
    EXPECT_EQ((sdk_test::CallEntry<void*, unsigned>(other, slot, 0u)), watched);
    EXPECT_EQ(ended, 2);
    EXPECT_EQ(watchedFrees, 0);
    ::operator delete(watched);
    EXPECT_EQ(watchedFrees, 1) << "the replaced operator is used";
}

TEST_F(DestructorSlot, WithTheFlagFreesTheObjectToo) {
    auto* const object = new Target;
    watched = object;
    EXPECT_EQ((sdk_test::CallEntry<void*, unsigned>(object, slot, 1u)), watched);
    EXPECT_EQ(ended, 1);
    EXPECT_EQ(watchedFrees, 1);
}

TEST_F(DestructorSlot, ReadsOnlyTheLowestBitOfTheFlags) {
    auto* const object = new Target;
    watched = object;
    EXPECT_EQ((sdk_test::CallEntry<void*, unsigned>(object, slot, 5u)), watched);
    EXPECT_EQ(watchedFrees, 1);

    alignas(Target) unsigned char memory[sizeof(Target)];
    auto* const placed = new (memory) Target;
    EXPECT_EQ((sdk_test::CallEntry<void*, unsigned>(placed, slot, 4u)), placed);
    EXPECT_EQ(ended, 2);
}

TEST_F(DestructorSlot, OfALaterBaseDestroysTheWholeObject) {
    for (const std::ptrdiff_t offset : {8, 16}) {
        ended = 0;
        watchedFrees = 0;
        auto* const object = new Target;
        watched = object;
        void* const base = reinterpret_cast<char*>(object) + offset;
        EXPECT_EQ((sdk_test::CallEntry<void*, unsigned>(base, slot, 1u)), watched);
        EXPECT_EQ(ended, 1);
        EXPECT_EQ(watchedFrees, 1);
    }
}

TEST_F(DestructorSlot, IsCalledByDestroyThroughSlot) {
    auto* object = new Target;
    watched = object;
    OKM8::DestroyThroughSlot(static_cast<OKM8::IBinaryAdjuster*>(object));
    EXPECT_EQ(ended, 1);
    EXPECT_EQ(watchedFrees, 1);

    object = new Target;
    watched = object;
    OKM8::DestroyThroughSlot(static_cast<OKM8::ICloneable*>(object));
    EXPECT_EQ(ended, 2);
    EXPECT_EQ(watchedFrees, 2);
}

TEST_F(DestructorSlot, IsNotCalledForNull) {
    OKM8::DestroyThroughSlot(nullptr);
    EXPECT_EQ(ended, 0);
}

}  // namespace
