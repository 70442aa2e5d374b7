/// The instruction sets that both the processor and the system support, and the processor's largest cache. Executes
/// CPUID on each call. Any thread.
#pragma once

#include <cstdint>

namespace image_transform::kernels::processor {

bool HasSse41();
bool HasAvx2();
bool HasAvx512Bw();    ///< with AVX-512F and AVX-512VL
bool HasAvx512Vbmi();  ///< with all of AVX-512BW

/// Returns the size of the largest cache in bytes, or 0 if the processor does not report its caches.
std::int64_t LargestCacheSize();

}  // namespace image_transform::kernels::processor
