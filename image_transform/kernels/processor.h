/// The instruction sets that both the processor and the system support. Executes CPUID on each call. Any thread.
#pragma once

namespace image_transform::kernels::processor {

bool HasSse41();
bool HasAvx2();
bool HasAvx512Bw();    ///< with AVX-512F and AVX-512VL
bool HasAvx512Vbmi();  ///< with all of AVX-512BW

}  // namespace image_transform::kernels::processor
