/// What the host needs from the system and the C library. The host itself is compiled for the Microsoft ABI without the
/// headers of either, so this interface uses only numbers and pointers.
#pragma once

#include <stddef.h>
#include <stdint.h>

extern "C" {

/// Sets the subject of the next checks. A call that crashes or hangs is reported under that name.
void BeginChecks(const char* subject);
/// Prints one line for the check and records whether it failed.
void ReportCheck(const char* what, bool holds);
void ReportNumbers(const char* what, int64_t actual, int64_t expected);
void ReportTexts(const char* what, const char* actual, const char* expected);
int FailedChecks();

/// Loads the library under test again at each call; returns null on failure.
void* LoadPlugin();
void UnloadPlugin(void* plugin);
void* FindExport(void* plugin, const char* name);

/// Returns whether this block is allocated in the library's heap.
bool IsAllocated(const void* block);
void FreeBlock(void* block);

/// The number of allocated blocks. No other thread of the process allocates.
uint64_t AllocatedBlocks();

/// The engine's export of that name; null when there is none.
void* FindEngineExport(const char* name);

/// Runs the action on a new thread, and waits for it.
void RunOnAnotherThread(void (*action)(void*), void* context);

/// Runs the action; true when an exception of this tree's compiler leaves it.
bool ThrowsOwnException(void (*action)(void*), void* context);

/// Makes the library write trace lines, by a registry of this process, and records those of the detector.
void RecordTraces();
/// The number of recorded lines with that message.
int CountTraces(const char* message);

/// From now on an unhandled exception with that code is counted, and its thread continues where it was raised; 0 for
/// none. An access violation makes ForbiddenPage accessible.
void HandleUnhandled(uint32_t code);
int HandledCount();
/// Memory that becomes accessible when an access violation is handled.
uint8_t* ForbiddenPage();

/// Runs the checks, built by the host's compiler. Returns FailedChecks().
int RunContractHost();
}
