/// A value for each thread that calls the library, in the system's thread-local storage. The compiler's thread-local
/// storage locks mutexes of its run-time library when a thread or the process ends; a thread that was terminated with
/// the process may hold one of them for ever.
#pragma once

namespace engine_library {

/// Returns null until the calling thread has stored a value.
void* ThreadValue();

/// Call once for each thread. Throws std::exception, and then stores nothing.
void SetThreadValue(void* value);

/// Called when a thread that has a value ends, and for all remaining values when the library is unloaded; not at the
/// end of the process, when the system frees everything.
void DestroyThreadValue(void* value);

}  // namespace engine_library
