// The exports when allocations fail.

#include <gtest/gtest.h>

#include <new>

#include "diagnostics/debug_level.h"
#include "sdk/module.h"
#include "tests/support/allocation_count.h"
#include "tests/support/scratch_registry.h"

extern "C" OKM8::Analytics::InitializeModuleFunction InitializeModule;
extern "C" OKM8::Analytics::GetModuleFunction GetModule;
extern "C" OKM8::Analytics::FinalizeModuleFunction FinalizeModule;

namespace {

using allocation_count::Failure;

class EntryPoints : public testing::Test {
  protected:
    EntryPoints() {
        registry.StoreText(test_support::ScratchRegistry::Hive::LocalMachine, "SOFTWARE\\Tellumark\\KORA\\DEBUG",
                           "DebugLevel", "7");
    }
    ~EntryPoints() override { FinalizeModule(); }

    test_support::ScratchRegistry registry;
    int host = 0;  // passed on and never read
};

TEST_F(EntryPoints, InitializeModuleDoesNotThrowWhenAnyAllocationFails) {
    std::uint64_t number = 1;
    for (;; ++number) {
        diagnostics::SetDebugLevel(1);
        Failure failure(number);
        EXPECT_EQ(InitializeModule(&host), 0);
        if (!failure.End()) {
            break;
        }
        EXPECT_EQ(diagnostics::DebugLevel(), 0) << "allocation " << number;
        EXPECT_NE(GetModule(), nullptr) << "allocation " << number;
        FinalizeModule();
    }
    EXPECT_GT(number, 1u);
    EXPECT_EQ(diagnostics::DebugLevel(), 7);
}

TEST_F(EntryPoints, GetModuleThrowsOnAllocationFailureAndCreatesTheModuleAtTheNextCall) {
    InitializeModule(&host);
    Failure failure(1);
    EXPECT_THROW(GetModule(), std::bad_alloc);
    EXPECT_TRUE(failure.End());
    EXPECT_NE(GetModule(), nullptr);
}

}  // namespace
