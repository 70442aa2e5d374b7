#include "platform/foreign_call.h"

#if VEXLANE_GUARDS_FOREIGN_CALLS

#include <windows.h>

namespace {

// What a throw of the Microsoft compiler hands to RaiseException: its code and four arguments.
constexpr DWORD microsoftException = 0xE06D7363;
enum Argument { magicArgument, objectArgument, throwInfoArgument, imageArgument, argumentCount };
constexpr ULONG_PTR firstMagic = 0x19930520;
constexpr ULONG_PTR lastMagic = 0x19930522;

// How the thrown object is destroyed. The addresses count from the beginning of the image that throws.
struct ThrowInfo {
    std::uint32_t attributes;
    std::uint32_t destructor;  // 0 for none
    std::uint32_t forwardCompatible;
    std::uint32_t catchableTypes;
};

// Does what the end of a catch block does. The object lies in the frame that threw it: between here and the guard's
// frame when the guarded call threw it. An object elsewhere belongs to a catch block of the host outside the guard that
// throws it again; the record of such a throw may also name no object.
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

// The unwinding lands on the return address of the call, with the code as the result: no code is needed there, and a
// shadow stack knows the address. The nop keeps that address out of the epilogue, where Windows asks no handler.
// "@unwind" makes the system call the handler for the object's end as well.
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

// Called while the system looks for a handler, with the whole stack still in place, and once more for the guard's own
// frame when everything above it has been unwound. The thrown object still exists then: the stack pointer is below it.
__attribute__((used)) EXCEPTION_DISPOSITION vexlane_foreign_exception_handler(EXCEPTION_RECORD* record,
                                                                              void* guardFrame, CONTEXT* context,
                                                                              DISPATCHER_CONTEXT* dispatcher) {
    if ((record->ExceptionFlags & EXCEPTION_TARGET_UNWIND) != 0) {
        DestroyThrownObject(*record, guardFrame);
        return ExceptionContinueSearch;
    }
    const bool isSearch = (record->ExceptionFlags & (EXCEPTION_UNWINDING | EXCEPTION_EXIT_UNWIND)) == 0;
    if (isSearch && record->ExceptionCode == microsoftException) {
        // With the record: the host's destructors run for the code of a C++ exception alone.
        ::RtlUnwindEx(guardFrame, vexlane_guard_landing, record,
                      reinterpret_cast<void*>(ULONG_PTR{record->ExceptionCode}), context, dispatcher->HistoryTable);
        __builtin_trap();  // RtlUnwindEx does not return
    }
    return ExceptionContinueSearch;
}

}  // extern "C"

#endif
