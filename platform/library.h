/// The life of this library in its process.
#pragma once

#include <cstdint>

namespace platform {

/// A reference that keeps this library loaded; 0 where none is needed, because a thread can be joined while the library
/// is being unloaded.
using LibraryReference = std::uintptr_t;

/// Taken before a thread of the library's own starts. Any thread.
LibraryReference HoldLibrary();

/// Gives the reference back. Where references are needed this ends the calling thread and does not return. The last act
/// of a thread that was made with HoldLibrary.
void ReleaseLibrary(LibraryReference reference);

/// Gives back a reference that no thread took over, and returns. Any thread.
void DropLibrary(LibraryReference reference);

/// True while the process ends and the system has already stopped the other threads: nothing may be waited for. False
/// in a forked child, which has no other threads either but goes on: what belongs to its parent is told by the process
/// that made it (CurrentProcessId in platform/process.h).
bool OtherThreadsAreGone();

}  // namespace platform
