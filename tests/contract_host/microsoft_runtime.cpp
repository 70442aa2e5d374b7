// What objects for the Microsoft ABI expect of that compiler's own libraries. Compiled as they are, so that the names
// come out right.

#include "tests/contract_host/system.h"

void operator delete(void* block) noexcept {
    FreeBlock(block);
}

void operator delete(void* block, size_t) noexcept {
    FreeBlock(block);
}

extern "C" {

// The table of the class of type descriptors. They point at it, and nothing calls it.
extern const void* const typeInfoTable[1] asm("??_7type_info@@6B@");
const void* const typeInfoTable[1] = {};

// Marks a program that computes with floating-point numbers.
extern const int _fltused;
const int _fltused = 1;

// What a pure operation's slot leads to.
int _purecall() {
    __builtin_trap();
}
}

// Touches the pages of a large stack frame; the same under the names of both compilers.
asm(".globl __chkstk\n"
    "__chkstk:\n"
    "    jmp ___chkstk_ms\n");
