// The guard against exceptions of other compilers.

#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/foreign_call.h"
#include "tests/support/microsoft_exception.h"

namespace {

using platform::CallForeign;
using platform::ForeignException;

constexpr std::uint32_t microsoftCode = microsoft_exception::code;

int ThrowForeign(int* destroyed) {
    microsoft_exception::Throw(destroyed);
    return 0;
}

void ThrowForeignAgain(microsoft_exception::Thrown* object) {
    microsoft_exception::ThrowAgain(*object);
}

// Is called by the host, and calls the host, which throws.
int CatchForeign(int* destroyed) {
    try {
        CallForeign<&ThrowForeign>(destroyed);
    } catch (const ForeignException&) {
        return 1;
    }
    return 0;
}

void RaiseWithoutArguments(std::uint32_t code) {
    RaiseException(code, 0, 0, nullptr);
}

struct DestructionCounter {
    ~DestructionCounter() { ++count; }
    int& count;
};

TEST(ForeignException, IsRethrownAsAnExceptionOfThisCompiler) {
    int destroyed = 0;
    int ended = 0;
    std::uint32_t code = 0;
    try {
        const DestructionCounter object = {ended};
        CallForeign<&ThrowForeign>(&destroyed);
    } catch (const std::exception&) {
        ADD_FAILURE() << "it was caught as std::exception";
    } catch (const ForeignException& exception) {
        code = exception.code;
    }
    EXPECT_EQ(code, microsoftCode);
    EXPECT_EQ(ended, 1);
    EXPECT_EQ(std::uncaught_exceptions(), 0);
}

TEST(ForeignException, DestroysItsObjectOnce) {
    int destroyed = 0;
    EXPECT_THROW(CallForeign<&ThrowForeign>(&destroyed), ForeignException);
    EXPECT_EQ(destroyed, 1);
}

TEST(ForeignException, KeepsTheObjectOfAnOuterCatchBlock) {
    int destroyed = 0;
    microsoft_exception::Thrown object = {&destroyed};
    EXPECT_THROW(CallForeign<&ThrowForeignAgain>(&object), ForeignException);
    EXPECT_EQ(destroyed, 0);
}

TEST(ForeignException, MayHaveNoObject) {
    EXPECT_THROW(CallForeign<&RaiseWithoutArguments>(microsoftCode), ForeignException);
}

TEST(ForeignException, IsCaughtByTheInnermostGuard) {
    int destroyed = 0;
    EXPECT_EQ(CallForeign<&CatchForeign>(&destroyed), 1);
    EXPECT_EQ(destroyed, 1);
}

TEST(ForeignException, IsCaughtInCatchBlocksAndDestructors) {
    int destroyed = 0;
    struct CallsInDestructor {
        ~CallsInDestructor() { EXPECT_EQ(CatchForeign(destroyed), 1); }
        int* destroyed;
    };
    std::uint32_t code = 0;
    try {
        const CallsInDestructor object = {&destroyed};
        throw std::runtime_error("our own");
    } catch (const std::runtime_error&) {
        try {
            CallForeign<&ThrowForeign>(&destroyed);
        } catch (const ForeignException& exception) {
            code = exception.code;
        }
    }
    EXPECT_EQ(code, microsoftCode);
    EXPECT_EQ(destroyed, 2);
}

// Called for an exception that no frame of a thread has handled.
std::vector<std::uint32_t> unhandledCodes;

LONG WINAPI Continue(EXCEPTION_POINTERS* exception) {
    unhandledCodes.push_back(exception->ExceptionRecord->ExceptionCode);
    return EXCEPTION_CONTINUE_EXECUTION;
}

int RaiseAndReturn(std::uint32_t code) {
    RaiseException(code, 0, 0, nullptr);
    return 77;
}

TEST(ForeignException, SystemExceptionsAreNotCaught) {
    constexpr std::uint32_t managedCode = 0xE0434352;
    constexpr std::uint32_t wideDebugOutput = 0x4001000A;
    const auto before = SetUnhandledExceptionFilter(Continue);
    for (const std::uint32_t code :
         {std::uint32_t{EXCEPTION_ACCESS_VIOLATION}, std::uint32_t{EXCEPTION_BREAKPOINT},
          std::uint32_t{EXCEPTION_ILLEGAL_INSTRUCTION}, std::uint32_t{EXCEPTION_STACK_OVERFLOW},
          std::uint32_t{DBG_PRINTEXCEPTION_C}, wideDebugOutput, managedCode}) {
        unhandledCodes.clear();
        EXPECT_EQ(CallForeign<&RaiseAndReturn>(code), 77) << std::hex << code;
        EXPECT_EQ(unhandledCodes, std::vector{code}) << std::hex << code;
    }
    // The thread naming exception, which the compiler's runtime handles.
    constexpr std::uint32_t threadName = 0x406D1388;
    EXPECT_EQ(CallForeign<&RaiseAndReturn>(threadName), 77);
    SetUnhandledExceptionFilter(before);
}

TEST(ForeignException, RestoresTheStackAndReleasesLocks) {
    constexpr int rounds = 1000;
    std::mutex mutex;
    std::array<int, 2> caught = {};
    const auto throwOften = [&mutex](int& count) {
        const auto* const frame = __builtin_frame_address(0);
        for (int round = 0; round < rounds; ++round) {
            int destroyed = 0;
            try {
                const std::lock_guard lock(mutex);
                CallForeign<&ThrowForeign>(&destroyed);
            } catch (const ForeignException&) {
                count += destroyed;
            }
        }
        EXPECT_EQ(__builtin_frame_address(0), frame);
    };
    std::thread other([&] { throwOften(caught[1]); });
    throwOften(caught[0]);
    other.join();
    EXPECT_EQ(caught, (std::array{rounds, rounds}));
}

// Saves and overwrites the registers that a function must preserve, then throws.
std::uint32_t OverwriteRegistersAndThrow(void* destroyed) {
    asm volatile(
        "movq $-1, %%rbx\n movq $-1, %%rsi\n movq $-1, %%rdi\n movq $-1, %%r12\n movq $-1, %%r13\n movq $-1, %%r14\n"
        "movq $-1, %%r15\n pcmpeqd %%xmm6, %%xmm6\n pcmpeqd %%xmm10, %%xmm10\n pcmpeqd %%xmm15, %%xmm15"
        :
        :
        : "rbx", "rsi", "rdi", "r12", "r13", "r14", "r15", "xmm6", "xmm10", "xmm15");
    microsoft_exception::Throw(static_cast<int*>(destroyed));
    return 0;
}

// The stack has room for a call's arguments, because the function makes other calls.
TEST(ForeignException, RestoresTheRegistersOfTheCaller) {
    struct Registers {
        std::uint64_t general[6] = {};
        std::uint64_t vector[3][2] = {};
    };
    const Registers before = {{1, 2, 3, 4, 5, 6}, {{7, 8}, {9, 10}, {11, 12}}};
    Registers after;
    const void* const places[] = {&before, &after};
    int destroyed = 0;
    std::uint32_t code = 0;
    asm volatile(R"(
        movq 8(%%rax), %%r15
        movq (%%rax), %%rax
        movq (%%rax), %%rbx
        movq 8(%%rax), %%rsi
        movq 16(%%rax), %%rdi
        movq 24(%%rax), %%r12
        movq 32(%%rax), %%r13
        movq 40(%%rax), %%r14
        movups 48(%%rax), %%xmm6
        movups 64(%%rax), %%xmm10
        movups 80(%%rax), %%xmm15
        call vexlane_guard_foreign_call
        movq %%rbx, (%%r15)
        movq %%rsi, 8(%%r15)
        movq %%rdi, 16(%%r15)
        movq %%r12, 24(%%r15)
        movq %%r13, 32(%%r15)
        movq %%r14, 40(%%r15)
        movups %%xmm6, 48(%%r15)
        movups %%xmm10, 64(%%r15)
        movups %%xmm15, 80(%%r15)
    )"
                 : "=a"(code)
                 : "a"(places), "c"(&OverwriteRegistersAndThrow), "d"(&destroyed)
                 : "rbx", "rsi", "rdi", "r8", "r9", "r10", "r11", "r12", "r13", "r14", "r15", "xmm0", "xmm1", "xmm2",
                   "xmm3", "xmm4", "xmm5", "xmm6", "xmm10", "xmm15", "memory", "cc");
    EXPECT_EQ(code, microsoftCode);
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(std::memcmp(&after, &before, sizeof before), 0);
}

}  // namespace
