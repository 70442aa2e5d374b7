/// What the library keeps for each thread that calls it. By the system's own storage: the compiler's takes locks of its
/// run-time library when a thread or the process ends, for which a thread that was ended with the process can keep it
/// waiting for ever.
#pragma once

namespace engine_library {

/// Null until the calling thread has kept something.
void* Kept();

/// Once for each thread. Throws std::exception, and then keeps nothing.
void Keep(void* kept);

/// Called when a thread ends that has kept something, and for all that have when the library is unloaded; not at the
/// end of the process, with which everything goes by itself.
void End(void* kept);

}  // namespace engine_library
