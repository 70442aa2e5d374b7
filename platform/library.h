/// The lifetime of this library in its process.
#pragma once

#include <cstdint>

namespace platform {

/// A reference that keeps this library loaded. 0 on systems that need none, because a thread can be joined while the
/// library is being unloaded.
using LibraryReference = std::uintptr_t;

/// Returns a new reference. Called before the library starts a thread. Any thread.
LibraryReference HoldLibrary();

/// Releases the reference as the last action of a thread that was started with it. Unless the reference is 0, this ends
/// the calling thread and does not return.
void ReleaseLibrary(LibraryReference reference);

/// Releases a reference whose thread did not start, and returns. Any thread.
void DropLibrary(LibraryReference reference);

/// Returns true at the end of the process, when the system has already stopped the other threads: the caller must not
/// wait for anything. Returns false in a forked child, which has no other threads either but continues; to detect a
/// child, compare CurrentProcessId() of platform/process.h. Any thread.
bool OtherThreadsAreGone();

}  // namespace platform
