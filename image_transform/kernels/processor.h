/// What the processor and the system let a program use. Asks the processor each time. Any thread.
#pragma once

namespace image_transform::kernels::processor {

bool HasSse41();
bool HasAvx2();
bool HasAvx512Bw();    ///< with AVX-512F and AVX-512VL
bool HasAvx512Vbmi();  ///< with all of AVX-512BW

}  // namespace image_transform::kernels::processor
