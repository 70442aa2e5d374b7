#include "platform/foreign_call.h"

#if VEXLANE_GUARDS_FOREIGN_CALLS

#include <windows.h>

namespace {

// What a throw expression of the Microsoft compiler passes to RaiseException: its code and four arguments.
constexpr DWORD microsoftException = 0xE06D7363;
enum Argument { magicArgument, objectArgument, throwInfoArgument, imageArgument, argumentCount };
constexpr ULONG_PTR firstMagic = 0x19930520;
constexpr ULONG_PTR lastMagic = 0x19930522;

// Describes how to destroy the thrown object. Addresses are relative to the beginning of the throwing image.
struct ThrowInfo {
    std::uint32_t attributes;
    std::uint32_t destructor;  // 0 for none
    std::uint32_t forwardCompatible;
    std::uint32_t catchableTypes;
};

// Destroys the thrown object, as the end of a catch block does. If the guarded call threw it, it is in a stack frame
// between this one and the guard's. An object elsewhere belongs to a catch block of the host outside the guard that
// rethrows it; the record of a rethrow may also contain no object.
void DestroyThrownObject(const EXCEPTION_RECORD& record, const void* guardFrame) {
    const ULONG_PTR* const arguments = record.ExceptionInformation;
    if (record.ExceptionCode != microsoftException || record.NumberParameters < argumentCount ||
        arguments[magicArgument] < firstMagic || arguments[magicArgument] > lastMagic ||
        arguments[throwInfoArgument] == 0 || arguments[imageArgument] == 0 ||
        arguments[objectArgument] >= reinterpret_cast<ULONG_PTR>(guardFrame) ||
        arguments[objectArgument] <= reinterpret_cast<ULONG_PTR>(__builtin_frame_address(0))) {
        return;
    }
    const auto* const info = reinterpret_cast<const ThrowInfo*>(arguments[throwInfoArgument]);
    if (info->destructor != 0) {
        using Destructor = void(ULONG_PTR object);
        reinterpret_cast<Destructor*>(arguments[imageArgument] + info->destructor)(arguments[objectArgument]);
    }
}

}  // namespace

// Unwinding continues at the return address of the call, with the code as the result: no further code is needed, and
// the address is on the shadow stack. The nop keeps it out of the epilogue, where Windows calls no handler. "@unwind"
// makes the system call the handler also to destroy the object.
asm(R"(
    .text
    .p2align 4
    .globl vexlane_guard_foreign_call
    .def vexlane_guard_foreign_call; .scl 2; .type 32; .endef
    .seh_proc vexlane_guard_foreign_call
vexlane_guard_foreign_call:
    .seh_handler vexlane_foreign_exception_handler, @except, @unwind
    subq $40, %rsp
    .seh_stackalloc 40
    .seh_endprologue
    movq %rcx, %rax
    movq %rdx, %rcx
    call *%rax
vexlane_guard_landing:
    nop
    addq $40, %rsp
    ret
    .seh_endproc
    .globl vexlane_guard_landing
)");

extern "C" {

extern char vexlane_guard_landing[];

// Called while the system searches for a handler, with the stack intact, and again for the guard's own frame after the
// frames above it are unwound. The thrown object still exists then, because the stack pointer is below it.
__attribute__((used)) EXCEPTION_DISPOSITION vexlane_foreign_exception_handler(EXCEPTION_RECORD* record,
                                                                              void* guardFrame, CONTEXT* context,
                                                                              DISPATCHER_CONTEXT* dispatcher) {
    if ((record->ExceptionFlags & EXCEPTION_TARGET_UNWIND) != 0) {
        DestroyThrownObject(*record, guardFrame);
        return ExceptionContinueSearch;
    }
    const bool isSearch = (record->ExceptionFlags & (EXCEPTION_UNWINDING | EXCEPTION_EXIT_UNWIND)) == 0;
    if (isSearch && record->ExceptionCode == microsoftException) {
        // With the record, because the host's destructors run only for the code of a C++ exception.
        ::RtlUnwindEx(guardFrame, vexlane_guard_landing, record,
                      reinterpret_cast<void*>(ULONG_PTR{record->ExceptionCode}), context, dispatcher->HistoryTable);
        __builtin_trap();  // RtlUnwindEx does not return
    }
    return ExceptionContinueSearch;
}

}  // extern "C"

#endif
