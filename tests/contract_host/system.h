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

/// The number of blocks that the allocator has given out. The process has no other thread that allocates.
uint64_t AllocatedBlocks();

/// What the engine exports under that name; null for nothing.
void* FindEngineExport(const char* name);

/// Runs the action on a thread of its own, and waits for it.
void RunOnAnotherThread(void (*action)(void*), void* context);

/// Runs the action; true when an exception of this tree's compiler leaves it.
bool ThrowsOwnException(void (*action)(void*), void* context);

/// Makes the library write trace lines, in a registry of this process's own, and keeps those of the detector.
void KeepTraces();
/// How many of them have had that message.
int CountTraces(const char* message);

/// From now on an exception with that code that no frame of its thread has taken is handled, and its thread goes on
/// where it was; 0 for none. An access violation makes ForbiddenPage accessible.
void HandleAtTheEnd(uint32_t code);
int HandledAtTheEnd();
/// Memory that is accessible when an access violation has been handled.
uint8_t* ForbiddenPage();

/// The checks, in the host's own compiler. Returns FailedChecks().
int RunContractHost();
}
