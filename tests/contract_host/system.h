/// What the host needs of the system and of the C library. The host itself is compiled for the Microsoft ABI, where
/// this machine has no headers of either, so nothing but numbers and pointers passes here.
#pragma once

#include <stddef.h>
#include <stdint.h>

extern "C" {

/// Names what is checked next. A call that crashes or hangs fails under that name.
void BeginChecks(const char* subject);
/// Prints one line for the check and remembers whether it failed.
void ReportCheck(const char* what, bool holds);
void ReportNumbers(const char* what, int64_t actual, int64_t expected);
void ReportTexts(const char* what, const char* actual, const char* expected);
int FailedChecks();

/// The library under test, loaded anew by each call; null when that fails.
void* LoadPlugin();
void UnloadPlugin(void* plugin);
void* FindExport(void* plugin, const char* name);

/// Whether the library's allocator still has this block.
bool IsAllocated(const void* block);
void FreeBlock(void* block);

/// The checks, in the host's own compiler. Answers FailedChecks().
int RunContractHost();
}
