// Symbols that objects for the Microsoft ABI expect from that compiler's own libraries. Compiled with the same
// compiler, so that the names match.

#include "tests/contract_host/system.h"

void operator delete(void* block) noexcept {
    FreeBlock(block);
}

void operator delete(void* block, size_t) noexcept {
    FreeBlock(block);
}

extern "C" {

// The virtual table of type descriptors. They point to it, and it is never called.
extern const void* const typeInfoTable[1] asm("??_7type_info@@6B@");
const void* const typeInfoTable[1] = {};

// Marks a program that computes with floating-point numbers.
extern const int _fltused;
const int _fltused = 1;

// The slot of a pure virtual operation points here.
int _purecall() {
    __builtin_trap();
}
}

// Touches the pages of a large stack frame; the same under the names of both compilers.
asm(".globl __chkstk\n"
    "__chkstk:\n"
    "    jmp ___chkstk_ms\n");
