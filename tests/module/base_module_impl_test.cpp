// The module object with a detector class that counts its objects and throws on demand.

#include "module/base_module_impl.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

namespace ContractName = OKM8::ContractName;
using OKM8::IContract;
using OKM8::Analytics::IDetector;

class FakeDetector final : public IDetector {
  public:
    FakeDetector(IContract* hostPeer, void* hostObject) : peer(hostPeer), host(hostObject) {
        ++made;
        if (failsWithText) {
            throw std::runtime_error("no detector");
        }
        if (failsWithNumber) {
            throw 42;
        }
    }
    OKM8_OBJECT_DESTRUCTOR_SLOT(FakeDetector)

    static void* operator new(std::size_t size) {
        void* const memory = ::operator new(size);
        ++allocated;
        lastAllocated = memory;
        return memory;
    }
    static void operator delete(void* memory) {
        ++freed;
        lastFreed = memory;
        ::operator delete(memory);
    }

    static void Reset() {
        failsWithText = failsWithNumber = false;
        made = allocated = freed = 0;
        lastAllocated = lastFreed = nullptr;
    }

    void* QueryContract(const char*) override { return nullptr; }
    void* QueryContract(const char*) const override { return nullptr; }
    void Destroy() override { OKM8::DestroyThroughSlot(this); }

    IContract* peer;
    void* host;

    static inline bool failsWithText = false;
    static inline bool failsWithNumber = false;
    static inline int made = 0;
    static inline int allocated = 0;
    static inline int freed = 0;
    static inline void* lastAllocated = nullptr;
    static inline void* lastFreed = nullptr;
};

using Module = BaseModuleImpl<FakeDetector>;

// The module passes the peer on and never calls it.
class FakePeer final : public IContract {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(FakePeer)
    void* QueryContract(const char*) override { return Unexpected(); }
    void* QueryContract(const char*) const override { return Unexpected(); }

  private:
    static void* Unexpected() {
        ADD_FAILURE() << "the peer was called";
        return nullptr;
    }
};

class BaseModule : public testing::Test {
  protected:
    BaseModule() { FakeDetector::Reset(); }

    // Never dereferenced, so an invalid address is enough.
    void* const hostObject = reinterpret_cast<void*>(std::uintptr_t{1});
    FakePeer peer;
    Module module{hostObject};
};

TEST_F(BaseModule, CreatesADetectorWithThePeerAndTheHostObject) {
    IDetector* const detector = module.CreateDetector(nullptr, &peer);
    ASSERT_NE(detector, nullptr);
    EXPECT_EQ(static_cast<FakeDetector*>(detector)->peer, &peer);
    EXPECT_EQ(static_cast<FakeDetector*>(detector)->host, hostObject);
    EXPECT_EQ(FakeDetector::made, 1);
    detector->Destroy();
}

TEST_F(BaseModule, CreatesANewDetectorAtEveryCall) {
    FakePeer otherPeer;
    IDetector* const first = module.CreateDetector(nullptr, &peer);
    IDetector* const second = module.CreateDetector(nullptr, &otherPeer);
    EXPECT_NE(first, second);
    EXPECT_EQ(static_cast<FakeDetector*>(second)->peer, &otherPeer);
    EXPECT_EQ(FakeDetector::made, 2);
    first->Destroy();
    second->Destroy();
}

TEST_F(BaseModule, IgnoresTheReservedArgument) {
    for (const std::uintptr_t reserved : {std::uintptr_t{1}, UINTPTR_MAX}) {
        IDetector* const detector = module.CreateDetector(reinterpret_cast<void*>(reserved), &peer);
        ASSERT_NE(detector, nullptr);
        EXPECT_EQ(static_cast<FakeDetector*>(detector)->peer, &peer);
        detector->Destroy();
    }
    EXPECT_EQ(module.CreateDetector(reinterpret_cast<void*>(std::uintptr_t{1}), nullptr), nullptr);
}

TEST_F(BaseModule, WithoutAHostObjectReturnsNullAndCreatesNoDetector) {
    Module withoutHost(nullptr);
    EXPECT_EQ(withoutHost.CreateDetector(nullptr, &peer), nullptr);
    EXPECT_EQ(withoutHost.CreateDetector(nullptr, nullptr), nullptr);
    EXPECT_EQ(FakeDetector::allocated, 0);
    EXPECT_EQ(FakeDetector::made, 0);
}

TEST_F(BaseModule, WithoutAPeerReturnsNullAndCreatesNoDetector) {
    EXPECT_EQ(module.CreateDetector(nullptr, nullptr), nullptr);
    EXPECT_EQ(FakeDetector::allocated, 0);
    EXPECT_EQ(FakeDetector::made, 0);
}

TEST_F(BaseModule, PropagatesAnExceptionOfTheDetectorsConstructorAndFreesItsMemory) {
    FakeDetector::failsWithText = true;
    std::string text;
    try {
        module.CreateDetector(nullptr, &peer);
    } catch (const std::runtime_error& error) {
        text = error.what();
    }
    EXPECT_EQ(text, "no detector");
    EXPECT_EQ(FakeDetector::made, 1);
    EXPECT_EQ(FakeDetector::allocated, 1);
    EXPECT_EQ(FakeDetector::freed, 1);
    EXPECT_NE(FakeDetector::lastAllocated, nullptr);
    EXPECT_EQ(FakeDetector::lastFreed, FakeDetector::lastAllocated);
}

TEST_F(BaseModule, PropagatesANonStandardExceptionAndCreatesTheNextDetector) {
    FakeDetector::failsWithNumber = true;
    EXPECT_THROW(module.CreateDetector(nullptr, &peer), int);
    EXPECT_EQ(FakeDetector::freed, 1);
    FakeDetector::failsWithNumber = false;
    IDetector* const detector = module.CreateDetector(nullptr, &peer);
    ASSERT_NE(detector, nullptr);
    detector->Destroy();
    EXPECT_EQ(FakeDetector::allocated, 2);
}

TEST_F(BaseModule, ReturnsItselfForItsThreeNames) {
    void* const itself = static_cast<OKM8::Analytics::IModule*>(&module);
    for (const char* name : {ContractName::IContract, ContractName::IPluginModule, ContractName::IModule}) {
        const std::string copy = name;
        EXPECT_EQ(module.QueryContract(copy.c_str()), itself) << name;
        EXPECT_EQ(std::as_const(module).QueryContract(copy.c_str()), itself) << name;
    }
}

TEST_F(BaseModule, ReturnsNullForAnyOtherName) {
    const std::string known = ContractName::IModule;
    const std::string names[] = {"",
                                 "IModule",
                                 known + " ",
                                 known.substr(0, known.size() - 1),
                                 "struct okm8::analytics::imodule",
                                 ContractName::IDetector,
                                 ContractName::IDestroyable};
    for (const std::string& name : names) {
        EXPECT_EQ(module.QueryContract(name.c_str()), nullptr) << name;
        EXPECT_EQ(std::as_const(module).QueryContract(name.c_str()), nullptr) << name;
    }
    EXPECT_EQ(module.QueryContract(nullptr), nullptr);
    EXPECT_EQ(std::as_const(module).QueryContract(nullptr), nullptr);
}

}  // namespace
