#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "image_transform/kernels/kernel.h"
#if VEXLANE_X64_KERNELS
#include "image_transform/kernels/processor.h"
#endif

namespace image_transform::kernels {

std::span<const Kernel> AllKernels() {
#if VEXLANE_X64_KERNELS
    static const std::array all = {avx512VbmiKernel, avx512BwKernel, avx2Kernel, sse41Kernel, scalarKernel};
#else
    static const std::array all = {scalarKernel};
#endif
    return all;
}

const Kernel& ChooseKernel(const char* name) {
    const std::span<const Kernel> all = AllKernels();
    const Kernel* chosen = nullptr;
    for (const Kernel& kernel : all) {
        if (!kernel.isSupported()) {
            continue;
        }
        if (name != nullptr && std::strcmp(kernel.name, name) == 0) {
            return kernel;
        }
        if (chosen == nullptr) {
            chosen = &kernel;
        }
    }
    return chosen != nullptr ? *chosen : all.back();
}

namespace {

constexpr std::int64_t alwaysCached = std::int64_t{16} << 20;

std::int64_t LargestCacheSize() {
#if VEXLANE_X64_KERNELS
    return processor::LargestCacheSize();
#else
    return 0;
#endif
}

// Initialised while the library is loaded, not on first use: when threads wait for one another at a first use, the
// locks of that wait leak with every load of the DLL.
const Kernel& active = ChooseKernel(std::getenv("VEXLANE_KERNEL"));

}  // namespace

std::int64_t largestCachedOutput = std::max(alwaysCached, LargestCacheSize() / 2);

const Kernel& ActiveKernel() {
    return active;
}

}  // namespace image_transform::kernels
